# Finds Open CASCADE for its platform, and says what is missing if it is not there.

# Its package accepts its own version only, so the version is compared here.
find_package(OpenCASCADE QUIET)
if(NOT OpenCASCADE_FOUND OR OpenCASCADE_VERSION VERSION_LESS 7.6)
    message(FATAL_ERROR "KvOpenCascadePlatform is left out, since Open CASCADE's development files are not installed: "
                        "scripts/bootstrap opencascade")
endif()

# kv_link_kernel(<target> <libraries...>): the kernel's headers are not this project's, so their warnings do not count.
function(kv_link_kernel target)
    target_include_directories(${target} SYSTEM PUBLIC "${OpenCASCADE_INCLUDE_DIR}")
    target_link_libraries(${target} PUBLIC ${ARGN})
endfunction()
