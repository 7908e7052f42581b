# Accepts only the systems and compilers that this project is tested with. Names what it refuses, which is
# clearer than an error of the compiler. For programs, the headers refuse 32-bit targets and older languages.

if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
    message(FATAL_ERROR "libKvSelectContext is for Linux, not for ${CMAKE_SYSTEM_NAME}.")
endif()
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
    message(FATAL_ERROR "libKvSelectContext does not support 32-bit targets.")
endif()

set(kv_oldest_GNU 11)
set(kv_oldest_Clang 14)
set(kv_compiler "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
if(NOT DEFINED kv_oldest_${CMAKE_CXX_COMPILER_ID})
    message(FATAL_ERROR "libKvSelectContext is compiled with g++ or clang, not with ${kv_compiler}.")
endif()
if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS kv_oldest_${CMAKE_CXX_COMPILER_ID})
    message(FATAL_ERROR "libKvSelectContext needs g++ 11 or clang 14, or a later one, not ${kv_compiler}.")
endif()
