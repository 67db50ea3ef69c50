# Components: what needs a foreign library, each a library of its own above the public headers.
# netro_add_component(NAME SOURCES... ) makes the target netro_NAME, called netro::NAME outside.
# Install.cmake exports what is listed in NETRO_COMPONENTS; find_package(netro COMPONENTS NAME)
# finds it.
function(netro_add_component name)
  add_library(netro_${name} SHARED ${ARGN})
  add_library(netro::${name} ALIAS netro_${name})
  target_include_directories(netro_${name}
    PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_features(netro_${name} PUBLIC cxx_std_20)
  set_target_properties(netro_${name} PROPERTIES
    EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    LINK_DEPENDS ${netro_exports})
  target_link_options(netro_${name} PRIVATE LINKER:--version-script=${netro_exports})
  set_property(GLOBAL APPEND PROPERTY NETRO_COMPONENTS ${name})
endfunction()
