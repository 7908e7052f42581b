# CPack runs this script when the files of all packages are staged. It finds the dependencies of the binaries,
# writes the list of the libraries that a package provides, and gives every file the date of the sources.

set(kv_stage "${CPACK_TEMPORARY_DIRECTORY}")
set(kv_control "${kv_stage}-control")
set(kv_all_libraries "${kv_control}/debian/shlibs.local")
file(MAKE_DIRECTORY "${kv_control}/debian")
file(WRITE "${kv_control}/debian/control" "Source: kvselectcontext\n\nPackage: kvselectcontext\nArchitecture: any\n")
file(WRITE "${kv_all_libraries}" "")

# Every library of this version works for a program that was linked with this or with an earlier patch version.
foreach(kv_component IN LISTS CPACK_KV_LIBRARY_PACKAGES)
    string(TOUPPER ${kv_component} kv_key)
    set(kv_provided "")
    file(GLOB_RECURSE kv_libraries "${kv_stage}/${kv_component}/*.so.*")
    foreach(kv_library IN LISTS kv_libraries)
        get_filename_component(kv_name "${kv_library}" NAME)
        if(kv_name MATCHES "^(lib.*)\\.so\\.([0-9]+\\.[0-9]+)$")
            string(APPEND kv_provided "${CMAKE_MATCH_1} ${CMAKE_MATCH_2} ${CPACK_DEBIAN_${kv_key}_PACKAGE_NAME} "
                   "(>= ${CPACK_PACKAGE_VERSION_MAJOR}.${CPACK_PACKAGE_VERSION_MINOR}.${CPACK_PACKAGE_VERSION_PATCH})\n")
            get_filename_component(kv_directory "${kv_library}" DIRECTORY)
            list(APPEND kv_search "-l${kv_directory}")
        endif()
    endforeach()
    if(kv_provided STREQUAL "")
        message(FATAL_ERROR "The package of ${kv_component} has no library.")
    endif()
    file(WRITE "${kv_control}/${kv_component}/shlibs" "${kv_provided}")
    file(APPEND "${kv_all_libraries}" "${kv_provided}")
    set(CPACK_DEBIAN_${kv_key}_PACKAGE_CONTROL_EXTRA "${kv_control}/${kv_component}/shlibs" "${CPACK_KV_TRIGGERS}")
endforeach()
list(REMOVE_DUPLICATES kv_search)

foreach(kv_component IN LISTS CPACK_KV_BINARY_PACKAGES)
    string(TOUPPER ${kv_component} kv_key)
    file(GLOB_RECURSE kv_binaries "${kv_stage}/${kv_component}/*.so.*" "${kv_stage}/${kv_component}/*/bin/*")
    execute_process(
        COMMAND dpkg-shlibdeps -O ${kv_search} -x${CPACK_DEBIAN_${kv_key}_PACKAGE_NAME} ${kv_binaries}
        WORKING_DIRECTORY "${kv_control}"
        OUTPUT_VARIABLE kv_depends
        OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT kv_depends MATCHES "^shlibs:Depends=(.+)$")
        message(FATAL_ERROR "dpkg-shlibdeps says of ${kv_component}: ${kv_depends}")
    endif()
    set(CPACK_DEBIAN_${kv_key}_PACKAGE_DEPENDS "${CMAKE_MATCH_1}")
endforeach()

if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    message(FATAL_ERROR "SOURCE_DATE_EPOCH is not set.")
endif()
execute_process(
    COMMAND find "${kv_stage}" -exec touch --no-dereference "--date=@$ENV{SOURCE_DATE_EPOCH}" {} +
    COMMAND_ERROR_IS_FATAL ANY)
