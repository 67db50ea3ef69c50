# netro_add_library(NAME OBJECTS LINK...) packs object files into the library netro_NAME (or netro
# for the core, which has no NAME), called netro::NAME (netro::netro) outside.
#
# With NETRO_BUILD_BOTH that one is shared, and beside it stands a static one with "_static" behind
# both names. Else BUILD_SHARED_LIBS decides what it is, as for any other library. The static name
# exists in any case: where nothing but a program that links it needs the second library, it is not
# built before that.
configure_file(${PROJECT_SOURCE_DIR}/cmake/exports.map.in ${PROJECT_BINARY_DIR}/exports.map @ONLY)
set(netro_exports ${PROJECT_BINARY_DIR}/exports.map)

function(netro_add_library target outside objects)
  set(type)
  if(NETRO_BUILD_BOTH)
    set(type SHARED)
  endif()
  netro_pack_library(${target} "${type}" ${objects})
  netro_set_up_library(${target} ${target} ${ARGN})
  add_library(netro::${outside} ALIAS ${target})

  get_target_property(type ${target} TYPE)
  if(type STREQUAL STATIC_LIBRARY)
    add_library(netro::${outside}_static ALIAS ${target})
    return()
  endif()
  # Before 1.0 a new minor version may change the binary interface, so the soname carries it.
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  if(NOT WIN32)
    # It also keeps in the standard library's templates, which are visible by themselves.
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${netro_exports})
    target_link_options(${target} PRIVATE LINKER:--version-script=${netro_exports})
  endif()

  set(unless_linked EXCLUDE_FROM_ALL)
  if(NETRO_BUILD_BOTH)
    set(unless_linked)
  endif()
  add_library(${target}_static STATIC ${unless_linked} $<TARGET_OBJECTS:${objects}>)
  netro_set_up_library(${target}_static ${target} ${ARGN})
  add_library(netro::${outside}_static ALIAS ${target}_static)
endfunction()

# Windows marks in the code what a library shows, so the shared one is compiled by itself there.
function(netro_pack_library target type objects)
  if(NOT WIN32 OR NOT (type STREQUAL SHARED OR (NOT type AND BUILD_SHARED_LIBS)))
    add_library(${target} ${type} $<TARGET_OBJECTS:${objects}>)
    return()
  endif()
  get_target_property(sources ${objects} SOURCES)
  get_target_property(folder ${objects} SOURCE_DIR)
  list(TRANSFORM sources PREPEND ${folder}/ REGEX "^[^/$]")
  add_library(${target} SHARED ${sources})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(${target} PRIVATE NETRO_BUILDING PUBLIC NETRO_SHARED)
  netro_unite(${target})
  # Else the static one would have the name of the import library.
  set_target_properties(${target} PROPERTIES PREFIX "")
endfunction()

function(netro_set_up_library target file)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PRIVATE ${ARGN})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${file} LINKER_LANGUAGE CXX)
endfunction()
