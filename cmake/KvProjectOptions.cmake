# KvProjectOptions: how this project compiles and links its own targets. All of them link it PRIVATE. It is
# never exported.

add_library(KvProjectOptions INTERFACE)

target_compile_options(
    KvProjectOptions
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wsign-conversion
              -Wold-style-cast
              -Wnon-virtual-dtor
              -Woverloaded-virtual
              -Wcast-align
              -Wcast-qual
              -Wformat=2
              -Wimplicit-fallthrough
              -Wmissing-declarations
              -Wundef
              -Wunused
              -Wextra-semi
              $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond>
              $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-branches>
              $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>
              $<$<BOOL:${KV_WERROR}>:-Werror>)

# clang 19 reports deprecated functions that std::stable_sort of libstdc++ 12 calls. clang 16 does not. g++
# still reports deprecated functions that this project calls.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 17)
    target_compile_options(KvProjectOptions INTERFACE -Wno-deprecated-declarations)
endif()

if(KV_SANITIZE)
    set(kv_sanitize_flags -fsanitize=${KV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_compile_options(KvProjectOptions INTERFACE ${kv_sanitize_flags})
    target_link_options(KvProjectOptions INTERFACE ${kv_sanitize_flags})
endif()

# With clang, only the executable links the sanitizer runtime. So only there may symbols of a shared library
# stay undefined.
if(NOT KV_SANITIZE OR CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_link_options(KvProjectOptions INTERFACE LINKER:--no-undefined)
endif()
