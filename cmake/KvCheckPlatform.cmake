# Reports a platform that lacks one of its four libraries, by the name of the library. Otherwise the linker
# would report it.

foreach(kv_platform_target Kv::OsBase Kv::Rx Kv::Geometry Kv::Database)
    if(NOT TARGET ${kv_platform_target})
        message(FATAL_ERROR "The platform \"${KV_PLATFORM_PACKAGE}\" does not provide the target ${kv_platform_target}.")
    endif()
endforeach()
