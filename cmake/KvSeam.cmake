# Kv::Seam: the headers of the seam, and the directory that includes start from, such as
# "platform/KvOsBase.h", "base/KvVector.h" and "selectcontext/KvSelectContext.h".

add_library(KvSeam INTERFACE)
add_library(Kv::Seam ALIAS KvSeam)
set_target_properties(KvSeam PROPERTIES EXPORT_NAME Seam)
target_compile_features(KvSeam INTERFACE cxx_std_17)
target_include_directories(KvSeam INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
kv_public_headers(KvSeam INTERFACE ${KV_SEAM_HEADERS})
