# A platform that lacks one of its four libraries is told apart here, by name, rather than by the linker.

foreach(kv_platform_target Kv::OsBase Kv::Rx Kv::Geometry Kv::Database)
    if(NOT TARGET ${kv_platform_target})
        message(FATAL_ERROR "The platform \"${KV_PLATFORM_PACKAGE}\" does not provide the target ${kv_platform_target}.")
    endif()
endforeach()
