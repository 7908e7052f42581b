# How this tree builds the four libraries of a platform.

set(kv_platform_map "${PROJECT_SOURCE_DIR}/platform/plain/PlatformLibrary.map")

# kv_add_platform_library(<name> <sources...>): adds Kv<name> with the alias Kv::<name>.
function(kv_add_platform_library name)
    add_library(Kv${name} SHARED ${ARGN})
    add_library(Kv::${name} ALIAS Kv${name})
    set_target_properties(
        Kv${name}
        PROPERTIES EXPORT_NAME ${name}
                   CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   VERSION ${PROJECT_VERSION}
                   SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    target_link_libraries(Kv${name} PUBLIC KvSeam PRIVATE $<BUILD_INTERFACE:KvProjectOptions>)
    target_link_options(Kv${name} PRIVATE "LINKER:--version-script=${kv_platform_map}")
    set_property(TARGET Kv${name} APPEND PROPERTY LINK_DEPENDS "${kv_platform_map}")
endfunction()
