# The .deb of "cmake --workflow --preset package": what Debian wants beyond an installation below /usr.
set(NETRO_PACKAGE_CONTACT "NetroClasses contributors <netro@netroclasses.invalid>" CACHE STRING
  "Who answers for the package: NAME <ADDRESS>")
set(debian ${PROJECT_BINARY_DIR}/debian)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "${NETRO_PACKAGE_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"HTTP, SMTP, DNS, WHOIS, time, ping and trace route, with and without
 proxies and TLS: an object, its properties, and one call that keeps the
 program's loop alive. With the headers, the library in both flavours, its
 components, and the command netro.")

# The libraries of the package, and that the linker's cache is told of them.
file(WRITE ${debian}/triggers "activate-noawait ldconfig\n")
set(abi ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(shlibs "libnetro ${abi} netro (>= ${abi})\n")
get_property(components GLOBAL PROPERTY NETRO_COMPONENTS)
foreach(component ${components})
  string(APPEND shlibs "libnetro_${component} ${abi} netro (>= ${abi})\n")
endforeach()
file(WRITE ${debian}/shlibs "${shlibs}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${debian}/triggers ${debian}/shlibs)

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${debian}/changelog "netro (${PROJECT_VERSION}) unstable; urgency=medium

  * CHANGELOG.md tells what came when.

 -- ${NETRO_PACKAGE_CONTACT}  ${date}
")
execute_process(COMMAND gzip -9nf ${debian}/changelog COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${debian}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
include(CPack)
