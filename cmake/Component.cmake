# Components: what needs a foreign library or serves tests only, each a library of its own above
# the public headers.
# netro_add_component(NAME SOURCES ... LINK ... PACKAGE ...) makes the target netro_NAME, called
# netro::NAME outside, and netro::NAME_static for programs of this project. Install.cmake exports
# what is listed in NETRO_COMPONENTS; find_package(netro COMPONENTS NAME) finds it, and with a static
# one the PACKAGE that has the libraries of LINK.
function(netro_add_component name)
  cmake_parse_arguments(PARSE_ARGV 1 component "" "PACKAGE" "SOURCES;LINK")
  add_library(netro_${name}_objects OBJECT ${component_SOURCES})
  target_include_directories(netro_${name}_objects
    PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(netro_${name}_objects PRIVATE ${component_LINK})
  set_target_properties(netro_${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)

  netro_add_library(netro_${name} ${name} netro_${name}_objects ${component_LINK})
  set_target_properties(netro_${name} PROPERTIES EXPORT_NAME ${name})
  set_property(GLOBAL APPEND PROPERTY NETRO_COMPONENTS ${name})
  get_target_property(type netro_${name} TYPE)
  if(type STREQUAL STATIC_LIBRARY)
    set_property(GLOBAL APPEND_STRING PROPERTY NETRO_COMPONENT_PACKAGES
      "set(netro_package_of_${name} ${component_PACKAGE})\n")
  endif()
endfunction()
