# cmake --install, and the find_package and pkg-config files; also of a parent project that has the
# library as a part.
include(CMakePackageConfigHelpers)

set(netro_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/netro)

set(netro_libraries netro)
if(NETRO_BUILD_BOTH)
  list(APPEND netro_libraries netro_static)
endif()
install(TARGETS ${netro_libraries} EXPORT netroTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
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
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT netro_${component}Targets NAMESPACE netro:: DESTINATION ${netro_package_dir})
endforeach()
if(TARGET netro_tls)
  install(FILES include/netro/tls/OpenSslTls.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/netro/tls)
endif()

if(TARGET netro_testkit)
  install(DIRECTORY include/netro/testkit DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/netro)
endif()

get_property(netro_component_packages GLOBAL PROPERTY NETRO_COMPONENT_PACKAGES)
configure_package_config_file(cmake/netroConfig.cmake.in ${PROJECT_BINARY_DIR}/netroConfig.cmake
  INSTALL_DESTINATION ${netro_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/netroConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/netroConfig.cmake ${PROJECT_BINARY_DIR}/netroConfigVersion.cmake
  DESTINATION ${netro_package_dir})

# The prefix is told from the place of the file, so that an installed tree can be moved.
# Folders of the caller's own that are no part of it stand as they are.
foreach(dir LIBDIR INCLUDEDIR)
  string(TOLOWER netro_pc_${dir} name)
  set(${name} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(${name} "${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
file(RELATIVE_PATH netro_pc_to_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file(cmake/netro.pc.in ${PROJECT_BINARY_DIR}/netro.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/netro.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# What it is made of and links, for those who keep lists (SPDX 2.3).
configure_file(packaging/netro.spdx.json.in ${PROJECT_BINARY_DIR}/netro.spdx.json @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/netro.spdx.json DESTINATION ${CMAKE_INSTALL_DATADIR}/netro)

# What README links to stands where it says. A parent project has documents of its own.
if(PROJECT_IS_TOP_LEVEL)
  install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN *.md PATTERN *.svg)
  install(FILES bench/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/bench)
endif()
