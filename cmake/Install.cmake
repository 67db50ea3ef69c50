# cmake --install, the find_package and pkg-config files, and the .deb of "cpack -G DEB".
include(CMakePackageConfigHelpers)

set(netro_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/netro)

install(TARGETS netro netro_static EXPORT netroTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${netro_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/netro)
if(TARGET netro_tool)
  install(TARGETS netro_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(EXPORT netroTargets NAMESPACE netro:: DESTINATION ${netro_package_dir})

# Each component has an export file of its own, which is read only when it is asked for.
get_property(netro_components GLOBAL PROPERTY NETRO_COMPONENTS)
foreach(component ${netro_components})
  install(TARGETS netro_${component} EXPORT netro_${component}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT netro_${component}Targets NAMESPACE netro:: DESTINATION ${netro_package_dir})
endforeach()
if(TARGET netro_tls)
  install(FILES include/netro/tls/OpenSslTls.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/netro/tls)
endif()

configure_package_config_file(cmake/netroConfig.cmake.in ${PROJECT_BINARY_DIR}/netroConfig.cmake
  INSTALL_DESTINATION ${netro_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/netroConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/netroConfig.cmake ${PROJECT_BINARY_DIR}/netroConfigVersion.cmake
  DESTINATION ${netro_package_dir})

# The prefix is told from the place of the file, so that an installed tree can be moved.
file(RELATIVE_PATH netro_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/netro.pc.in ${PROJECT_BINARY_DIR}/netro.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/netro.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(document LICENSE README.md CHANGELOG.md docs)
  if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${document})
    install(DIRECTORY ${document}/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
  elseif(EXISTS ${PROJECT_SOURCE_DIR}/${document})
    install(FILES ${document} DESTINATION ${CMAKE_INSTALL_DOCDIR})
  endif()
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "NetroClasses contributors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
find_program(NETRO_SHLIBDEPS dpkg-shlibdeps)
if(NETRO_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
endif()
include(CPack)
