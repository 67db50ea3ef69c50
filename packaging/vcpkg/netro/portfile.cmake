# An overlay of this tree: vcpkg install netro --overlay-ports=packaging/vcpkg
get_filename_component(SOURCE_PATH ${CMAKE_CURRENT_LIST_DIR}/../../.. ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS features FEATURES
  tls NETRO_BUILD_TLS
  codings NETRO_BUILD_CODINGS
  testkit NETRO_BUILD_TESTKIT)
string(COMPARE EQUAL ${VCPKG_LIBRARY_LINKAGE} dynamic shared)
vcpkg_cmake_configure(SOURCE_PATH ${SOURCE_PATH} OPTIONS ${features}
  -DBUILD_SHARED_LIBS=${shared}
  -DNETRO_BUILD_TESTS=OFF -DNETRO_BUILD_TOOLS=OFF -DNETRO_BUILD_EXAMPLES=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/netro)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE ${CURRENT_PACKAGES_DIR}/debug/include ${CURRENT_PACKAGES_DIR}/debug/share
  ${CURRENT_PACKAGES_DIR}/share/doc)
vcpkg_install_copyright(FILE_LIST ${SOURCE_PATH}/LICENSE)
