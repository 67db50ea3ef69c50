# Components: what needs a foreign library, each a library of its own above the public headers.
# netro_add_component(NAME SOURCES ... LINK ...) makes the target netro_NAME, called netro::NAME
# outside, and netro_NAME_static for programs of this project. Install.cmake exports what is listed
# in NETRO_COMPONENTS; find_package(netro COMPONENTS NAME) finds it.
function(netro_add_component name)
  cmake_parse_arguments(PARSE_ARGV 1 component "" "" "SOURCES;LINK")
  add_library(netro_${name}_objects OBJECT ${component_SOURCES})
  target_include_directories(netro_${name}_objects
    PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(netro_${name}_objects PRIVATE ${component_LINK})
  set_target_properties(netro_${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)

  add_library(netro_${name} SHARED $<TARGET_OBJECTS:netro_${name}_objects>)
  add_library(netro_${name}_static STATIC $<TARGET_OBJECTS:netro_${name}_objects>)
  foreach(flavour netro_${name} netro_${name}_static)
    string(REPLACE netro_ netro:: outside ${flavour})
    add_library(${outside} ALIAS ${flavour})
    target_include_directories(${flavour} PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${flavour} PUBLIC cxx_std_20)
    target_link_libraries(${flavour} PRIVATE ${component_LINK})
    set_target_properties(${flavour} PROPERTIES OUTPUT_NAME netro_${name} LINKER_LANGUAGE CXX)
  endforeach()
  set_target_properties(netro_${name} PROPERTIES
    EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    LINK_DEPENDS ${netro_exports})
  target_link_options(netro_${name} PRIVATE LINKER:--version-script=${netro_exports})
  set_property(GLOBAL APPEND PROPERTY NETRO_COMPONENTS ${name})
endfunction()
