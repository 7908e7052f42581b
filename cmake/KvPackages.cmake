# Debian packages of the components that KvInstall.cmake names, by CPack. scripts/package sets what this file
# needs: the options, the flags of Debian's compilers, and SOURCE_DATE_EPOCH.

if(NOT KV_PLATFORM_PACKAGE STREQUAL "" OR NOT KV_BUILD_EXAMPLES OR NOT KV_INSTALL OR NOT BUILD_SHARED_LIBS)
    message(FATAL_ERROR "KV_PACKAGES packs shared libraries, the in-memory platform and the picker: build them.")
endif()
set(KV_REFERENCE "" CACHE PATH "Directory of the reference that scripts/docs has made, for KV_PACKAGES")
if(NOT EXISTS "${KV_REFERENCE}/index.html")
    message(FATAL_ERROR "KV_PACKAGES needs the reference: set KV_REFERENCE to a directory that scripts/docs has made.")
endif()

set(kv_debian "${PROJECT_SOURCE_DIR}/packaging/debian")
set(kv_packed "${PROJECT_BINARY_DIR}/packed")
set(kv_api ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
find_program(KV_GZIP gzip REQUIRED)
mark_as_advanced(KV_GZIP)

# The changelog decides the revision of the packages, and must be about this version.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${kv_debian}/changelog")
file(STRINGS "${kv_debian}/changelog" kv_latest_change LIMIT_COUNT 1)
if(NOT kv_latest_change MATCHES "^kvselectcontext \\((.*)-([0-9]+)\\) ")
    message(FATAL_ERROR "packaging/debian/changelog begins with no version: ${kv_latest_change}")
endif()
set(kv_revision ${CMAKE_MATCH_2})
if(NOT CMAKE_MATCH_1 VERSION_EQUAL PROJECT_VERSION)
    message(FATAL_ERROR "packaging/debian/changelog is about ${CMAKE_MATCH_1}, and the project is ${PROJECT_VERSION}.")
endif()
set(kv_exactly "(= ${PROJECT_VERSION}-${kv_revision})")

# kv_compress(<source> <name>): writes <name>.gz in the same bytes every time.
function(kv_compress source name)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${source}")
    file(MAKE_DIRECTORY "${kv_packed}")
    execute_process(
        COMMAND "${KV_GZIP}" -9 --no-name --stdout "${source}" OUTPUT_FILE "${kv_packed}/${name}.gz" COMMAND_ERROR_IS_FATAL
                                                                                                     ANY)
endfunction()

# The library packages tell the loader's cache about their libraries.
file(WRITE "${kv_packed}/triggers" "activate-noawait ldconfig\n")

# kv_debian_package(<component> <name> SECTION <section> SUMMARY <line> TEXT <lines...> [DEPENDS <package>...]
# [SUGGESTS <package>...] [ALL]): describes the package of a component, and installs the files that Debian wants
# in each package. ALL is for packages that are the same on every architecture.
function(kv_debian_package component name)
    cmake_parse_arguments(PARSE_ARGV 2 kv "ALL" "SECTION;SUMMARY" "TEXT;DEPENDS;SUGGESTS")
    string(TOUPPER ${component} key)
    list(JOIN kv_TEXT "\n" text)
    list(JOIN kv_DEPENDS ", " depends)
    list(JOIN kv_SUGGESTS ", " suggests)
    foreach(
        setting IN
        ITEMS "NAME ${name}" "SECTION ${kv_SECTION}" "DEPENDS ${depends}" "SUGGESTS ${suggests}"
              "SOURCE kvselectcontext" "CONTROL_STRICT_PERMISSION ON")
        string(REGEX MATCH "^([A-Z_]+) (.*)$" setting "${setting}")
        set(CPACK_DEBIAN_${key}_PACKAGE_${CMAKE_MATCH_1} "${CMAKE_MATCH_2}" PARENT_SCOPE)
    endforeach()
    set(CPACK_DEBIAN_${key}_DESCRIPTION "${kv_SUMMARY}\n${text}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_FILE_NAME DEB-DEFAULT PARENT_SCOPE)
    if(kv_ALL)
        set(CPACK_DEBIAN_${key}_PACKAGE_ARCHITECTURE all PARENT_SCOPE)
    endif()
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)

    set(documents "${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}")
    install(
        FILES "${kv_debian}/copyright" "${kv_packed}/changelog.gz" "${kv_packed}/changelog.Debian.gz"
        DESTINATION "${documents}"
        COMPONENT ${component})

    string(REGEX REPLACE "[0-9.]+$" "" plain_name ${name})
    file(READ "${kv_debian}/lintian-overrides" overrides)
    if(EXISTS "${kv_debian}/${plain_name}.lintian-overrides")
        file(READ "${kv_debian}/${plain_name}.lintian-overrides" own_overrides)
    endif()
    file(WRITE "${kv_packed}/overrides/${name}" "${overrides}${own_overrides}")
    install(
        FILES "${kv_packed}/overrides/${name}"
        DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides"
        COMPONENT ${component})
endfunction()

kv_compress("${PROJECT_SOURCE_DIR}/CHANGELOG.md" changelog)
kv_compress("${kv_debian}/changelog" changelog.Debian)
kv_compress("${kv_debian}/picker.1" picker.1)

kv_debian_package(
    KvLibrary libkvselectcontext${kv_api}
    SECTION libs
    SUMMARY "selection sets for a CAD application - library"
    TEXT "A selection set keeps what a user has picked, in the order of the picks: whole"
         "entities, parts of entities, and entities deep inside nested blocks."
         "Copies of a set share their data until one of them changes."
         "The library is made for sets of a million items in an application that must"
         "not go down with a selection."
         ""
         "This package has the shared library.")
kv_debian_package(
    KvDevelopment libkvselectcontext-dev
    SECTION libdevel
    SUMMARY "selection sets for a CAD application - development files"
    TEXT "A selection set keeps what a user has picked, in the order of the picks: whole"
         "entities, parts of entities, and entities deep inside nested blocks."
         ""
         "This package has the headers, and the files by which CMake and pkg-config find"
         "the library."
    DEPENDS "libkvselectcontext${kv_api} ${kv_exactly}" "libkvinmemoryplatform-dev ${kv_exactly}"
    SUGGESTS kvselectcontext-doc)
kv_debian_package(
    KvPlatform libkvinmemoryplatform${kv_api}
    SECTION libs
    SUMMARY "in-memory drawing database for selection sets - libraries"
    TEXT "The selection-set library calls four libraries of its application: memory and"
         "errors, runtime classes, geometry, and the drawing database. These are such"
         "libraries. They keep a drawing in memory, for examples and tests."
         ""
         "This package has the shared libraries.")
kv_debian_package(
    KvPlatformDevelopment libkvinmemoryplatform-dev
    SECTION libdevel
    SUMMARY "in-memory drawing database for selection sets - development files"
    TEXT "The selection-set library calls four libraries of its application: memory and"
         "errors, runtime classes, geometry, and the drawing database. These are such"
         "libraries. They keep a drawing in memory, for examples and tests."
         ""
         "This package has the headers of the in-memory libraries, and those that say"
         "what the library calls in its application. CMake and pkg-config find both."
    DEPENDS "libkvinmemoryplatform${kv_api} ${kv_exactly}")
kv_debian_package(
    KvDocumentation kvselectcontext-doc ALL
    SECTION doc
    SUMMARY "selection sets for a CAD application - documentation"
    TEXT "A selection set keeps what a user has picked, in the order of the picks: whole"
         "entities, parts of entities, and entities deep inside nested blocks."
         ""
         "This package has the tutorial, the reference, notes on the design and on the"
         "performance of the library, and examples."
    SUGGESTS libkvselectcontext-dev)
kv_debian_package(
    KvPicker kvselectcontext-picker
    SECTION graphics
    SUMMARY "command-line program that picks entities from a drawing"
    TEXT "This program loads a drawing from an SVG file and takes picks by commands:"
         "points, windows, crossings and fences. It shows what a selection set makes of"
         "them. It is the example application of the selection-set library."
    SUGGESTS "librsvg2-bin")

set(kv_documents "${CMAKE_INSTALL_DATAROOTDIR}/doc")
install(TARGETS picker COMPONENT KvPicker)
install(FILES "${kv_packed}/picker.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT KvPicker)
install(
    FILES "${PROJECT_SOURCE_DIR}/examples/picker/README.md"
    DESTINATION "${kv_documents}/kvselectcontext-picker"
    COMPONENT KvPicker)
install(
    DIRECTORY "${PROJECT_SOURCE_DIR}/examples/picker/demo/"
    DESTINATION "${kv_documents}/kvselectcontext-picker/examples"
    COMPONENT KvPicker)

install(
    DIRECTORY "${KV_REFERENCE}/"
    DESTINATION "${kv_documents}/kvselectcontext-doc/html"
    COMPONENT KvDocumentation)
install(
    FILES "${kv_debian}/doc-base"
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc-base"
    RENAME kvselectcontext-doc.kvselectcontext
    COMPONENT KvDocumentation)

# The examples are the programs of the README and of the tutorial, as a project of their own.
file(READ "${PROJECT_SOURCE_DIR}/README.md" kv_readme)
string(REGEX MATCH "```cpp\n([^`]*)```" kv_fenced "${kv_readme}")
file(CONFIGURE OUTPUT "${kv_packed}/picks.cpp" CONTENT "${CMAKE_MATCH_1}" @ONLY)
foreach(kv_piece IN ITEMS cpp text)
    execute_process(
        COMMAND sh "${PROJECT_SOURCE_DIR}/tests/docs/extract.sh" ${kv_piece} "${PROJECT_SOURCE_DIR}/docs/tutorial.md"
        OUTPUT_FILE "${kv_packed}/tutorial.${kv_piece}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
install(
    FILES "${PROJECT_SOURCE_DIR}/packaging/examples/CMakeLists.txt" "${PROJECT_SOURCE_DIR}/packaging/examples/Makefile"
          "${kv_packed}/picks.cpp" "${kv_packed}/tutorial.cpp" "${kv_packed}/tutorial.text"
    DESTINATION "${kv_documents}/kvselectcontext-doc/examples"
    COMPONENT KvDocumentation)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kvselectcontext)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has a summary of its own
set(CPACK_PACKAGE_CONTACT "KvSelectContext maintainers <maintainers@kvselectcontext.example>")
set(CPACK_SET_DESTDIR ON) # so that rules of installation see the prefix of the packages
set(CPACK_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/debian")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${kv_revision})

# The script finds the dependencies of the binaries. CPack can do so itself, but not for libraries that the
# packages have from each other, and then it also writes maintainer scripts that policy forbids.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/KvPackagesPrepare.cmake")
set(CPACK_KV_LIBRARY_PACKAGES "KvLibrary;KvPlatform")
set(CPACK_KV_BINARY_PACKAGES "KvLibrary;KvPlatform;KvPicker")
set(CPACK_KV_TRIGGERS "${kv_packed}/triggers")
include(CPack)
