# A port for an overlay: it builds the tree that it is part of.
get_filename_component(SOURCE_PATH "${CURRENT_PORT_DIR}/../../.." ABSOLUTE)

# The libraries of the in-memory platform are shared in any case.
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)

vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS -DKV_BUILD_TESTS=OFF -DKV_BUILD_EXAMPLES=OFF -DKV_BUILD_BENCH=OFF -DKV_WERROR=OFF -DCMAKE_INSTALL_LIBDIR=lib)
vcpkg_cmake_install()

foreach(package IN ITEMS KvSeam KvInMemoryPlatform KvSelectContext)
    vcpkg_cmake_config_fixup(PACKAGE_NAME ${package} CONFIG_PATH "lib/cmake/${package}" DO_NOT_DELETE_PARENT_CONFIG_PATH)
endforeach()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/lib/cmake" "${CURRENT_PACKAGES_DIR}/debug/lib/cmake")
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
vcpkg_fixup_pkgconfig()
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/packaging/debian/copyright")
