# What holds for every project that embeds the library.

# The parent project decides about tests, warnings and installation.
foreach(option KV_BUILD_TESTS KV_BUILD_EXAMPLES KV_BUILD_BENCH KV_WERROR KV_INSTALL)
    if(${option})
        message(FATAL_ERROR "${option} is on in a project that merely embeds the library")
    endif()
endforeach()

# The parent project also decides about the language, from C++17 on.
get_target_property(standard KvSelectContext CXX_STANDARD)
if(NOT standard EQUAL WANTED_STANDARD)
    message(FATAL_ERROR "the library is compiled as C++${standard}, not as C++${WANTED_STANDARD}")
endif()
