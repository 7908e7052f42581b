# Kv::Seam: the seam's headers and the include root. "platform/KvOsBase.h", "base/KvVector.h", "selectcontext/KvSelectContext.h" start from it.

add_library(KvSeam INTERFACE)
add_library(Kv::Seam ALIAS KvSeam)
set_target_properties(KvSeam PROPERTIES EXPORT_NAME Seam)
target_compile_features(KvSeam INTERFACE cxx_std_17)
target_include_directories(KvSeam INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
kv_public_headers(KvSeam INTERFACE ${KV_SEAM_HEADERS})
