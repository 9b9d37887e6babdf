# The two shared libraries and the object libraries that they, and the tests, are linked from.
#
# Each folder adds its own sources with target_sources(); tests that reach internals link
# vantro_client_objects and vantro_platform_objects and never a shared library as well.
add_library(vantro_platform_objects OBJECT)
target_include_directories(vantro_platform_objects PUBLIC
  ${PROJECT_SOURCE_DIR}/platform/include)
target_include_directories(vantro_platform_objects PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(vantro_platform_objects PUBLIC Threads::Threads)

add_library(vantro_client_objects OBJECT)
target_include_directories(vantro_client_objects PUBLIC
  ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/platform/include)
target_include_directories(vantro_client_objects PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(vantro_client_objects PUBLIC Threads::Threads)

function(vantro_shared_library name objects map)
  add_library(${name} SHARED $<TARGET_OBJECTS:${objects}>)
  set_target_properties(${name} PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  target_link_options(${name} PRIVATE
    -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/${map})
  if(NOT VANTRO_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/${map})
  target_link_libraries(${name} PRIVATE Threads::Threads)
endfunction()

vantro_shared_library(vantroplatform vantro_platform_objects vantroplatform.map)
target_include_directories(vantroplatform INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform/include>
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

vantro_shared_library(vantroclient vantro_client_objects vantroclient.map)
target_include_directories(vantroclient INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(vantroclient PUBLIC vantroplatform)
