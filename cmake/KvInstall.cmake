# Installs four packages: KvSeam, KvInMemoryPlatform, KvSelectContext and KvSelectContextAids. KvSeam has the
# headers that a platform needs. KvInMemoryPlatform is installed if the library was built with it. Each package
# has a CMake package and a pkg-config module.
#
# The components say which Debian package a file belongs to (see KvPackages.cmake). The seam belongs to
# KvPlatformDevelopment. KvSelectContext needs a platform to be found, and so a program that uses either
# package has the seam.

include(CMakePackageConfigHelpers)

set(KV_INSTALL_HEADERS "${CMAKE_INSTALL_INCLUDEDIR}/KvSelectContext")
set(KV_INSTALL_PKGCONFIG "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(SET kv_pkgconfig_directory NORMALIZE "${CMAKE_INSTALL_PREFIX}/${KV_INSTALL_PKGCONFIG}")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${kv_pkgconfig_directory}"
           OUTPUT_VARIABLE KV_PREFIX_FROM_PKGCONFIG)

if(KV_PLATFORM_PACKAGE STREQUAL "")
    set(KV_PLATFORM_DEPENDENCY KvInMemoryPlatform)
    set(KV_PKGCONFIG_REQUIRES KvInMemoryPlatform)
elseif(KV_PLATFORM_PACKAGE STREQUAL "KvOpenCascadePlatform")
    set(KV_PLATFORM_DEPENDENCY KvOpenCascadePlatform)
    set(KV_PKGCONFIG_REQUIRES KvOpenCascadePlatform)
else()
    set(KV_PLATFORM_DEPENDENCY ${KV_PLATFORM_PACKAGE})
    set(KV_PKGCONFIG_REQUIRES ${KV_PLATFORM_PKGCONFIG})
    if(KV_PLATFORM_PKGCONFIG STREQUAL "")
        message(WARNING "KV_PLATFORM_PKGCONFIG is empty, so KvSelectContext.pc will not name the libraries of the platform "
                        "\"${KV_PLATFORM_PACKAGE}\". A program that is built by pkg-config has to name them itself. Name the "
                        "platform's pkg-config modules by -DKV_PLATFORM_PKGCONFIG=... to avoid that.")
    endif()
endif()

# A program by pkg-config is compiled with the same definitions as a program by CMake.
get_target_property(KV_PKGCONFIG_DEFINITIONS KvSelectContext INTERFACE_COMPILE_DEFINITIONS)
if(NOT KV_PKGCONFIG_DEFINITIONS)
    set(KV_PKGCONFIG_DEFINITIONS "")
endif()
list(TRANSFORM KV_PKGCONFIG_DEFINITIONS PREPEND "-D")
list(JOIN KV_PKGCONFIG_DEFINITIONS " " KV_PKGCONFIG_DEFINITIONS)

# kv_install_package(<name> <component>): installs the config, version, targets and pkg-config files of one
# package.
function(kv_install_package name component)
    set(directory "${CMAKE_INSTALL_LIBDIR}/cmake/${name}")
    install(EXPORT ${name}Targets NAMESPACE Kv:: DESTINATION "${directory}" COMPONENT ${component})
    configure_package_config_file(
        "${PROJECT_SOURCE_DIR}/cmake/${name}Config.cmake.in" "${PROJECT_BINARY_DIR}/packages/${name}Config.cmake"
        INSTALL_DESTINATION "${directory}")
    write_basic_package_version_file(
        "${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
    install(FILES "${PROJECT_BINARY_DIR}/packages/${name}Config.cmake"
                  "${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake"
            DESTINATION "${directory}"
            COMPONENT ${component})
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in" "${PROJECT_BINARY_DIR}/packages/${name}.pc" @ONLY)
    install(
        FILES "${PROJECT_BINARY_DIR}/packages/${name}.pc"
        DESTINATION "${KV_INSTALL_PKGCONFIG}"
        COMPONENT ${component})
endfunction()

install(
    TARGETS KvSeam
    EXPORT KvSeamTargets
    FILE_SET HEADERS DESTINATION "${KV_INSTALL_HEADERS}" COMPONENT KvPlatformDevelopment)
kv_install_package(KvSeam KvPlatformDevelopment)

if(KV_PLATFORM_PACKAGE STREQUAL "")
    install(
        TARGETS KvOsBase KvRx KvGeometry KvDatabase
        EXPORT KvInMemoryPlatformTargets
        LIBRARY COMPONENT KvPlatform NAMELINK_COMPONENT KvPlatformDevelopment)
    install(
        DIRECTORY "${PROJECT_SOURCE_DIR}/platform/inmemory"
        DESTINATION "${KV_INSTALL_HEADERS}/platform"
        COMPONENT KvPlatformDevelopment
        FILES_MATCHING PATTERN "InMemory*.h" PATTERN "detail" EXCLUDE)
    kv_install_package(KvInMemoryPlatform KvPlatformDevelopment)
elseif(KV_PLATFORM_PACKAGE STREQUAL "KvOpenCascadePlatform")
    install(
        TARGETS KvOsBase KvRx KvGeometry KvDatabase KvOpenCascadeViewer
        EXPORT KvOpenCascadePlatformTargets
        LIBRARY COMPONENT KvPlatform NAMELINK_COMPONENT KvPlatformDevelopment)
    install(
        DIRECTORY "${PROJECT_SOURCE_DIR}/platform/opencascade" "${PROJECT_SOURCE_DIR}/platform/plain"
        DESTINATION "${KV_INSTALL_HEADERS}/platform"
        COMPONENT KvPlatformDevelopment
        FILES_MATCHING PATTERN "OpenCascade*.h" PATTERN "Plain*.h" PATTERN "detail" EXCLUDE)
    kv_install_package(KvOpenCascadePlatform KvPlatformDevelopment)
endif()

install(
    TARGETS KvSelectContext
    EXPORT KvSelectContextTargets
    LIBRARY COMPONENT KvLibrary NAMELINK_COMPONENT KvDevelopment
    ARCHIVE COMPONENT KvDevelopment
    FILE_SET HEADERS DESTINATION "${KV_INSTALL_HEADERS}" COMPONENT KvDevelopment)
kv_install_package(KvSelectContext KvDevelopment)

install(
    TARGETS KvSelectContextAids
    EXPORT KvSelectContextAidsTargets
    ARCHIVE COMPONENT KvDevelopment
    FILE_SET HEADERS DESTINATION "${KV_INSTALL_HEADERS}" COMPONENT KvDevelopment)
kv_install_package(KvSelectContextAids KvDevelopment)
