# What is installed, in three components: `runtime` (libraries and programs), `development`
# (headers, pkg-config files and the CMake package) and `python` (the Python package). The installed
# tree may be moved as a whole.
include(CMakePackageConfigHelpers)

# Programs and libraries find the libraries by relative paths, so the tree can be in any place.
file(RELATIVE_PATH libraries_from_programs
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
set_target_properties(vantroclient vantroplatform PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(vantroclient PROPERTIES EXPORT_NAME client)
set_target_properties(vantroplatform PROPERTIES EXPORT_NAME platform)
add_library(Vantro::client ALIAS vantroclient)
add_library(Vantro::platform ALIAS vantroplatform)

install(TARGETS vantroclient vantroplatform EXPORT VantroTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vantro ${PROJECT_SOURCE_DIR}/platform/include/vantro
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

set(examples_directory ${CMAKE_INSTALL_DATADIR}/doc/vantro/examples)
if(VANTRO_PACKAGES)
  set(examples_directory ${CMAKE_INSTALL_DATADIR}/doc/libvantro-dev/examples)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${examples_directory}
  COMPONENT development FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.py")

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/Vantro)
install(EXPORT VantroTargets NAMESPACE Vantro:: DESTINATION ${package_directory}
  COMPONENT development)
file(WRITE ${PROJECT_BINARY_DIR}/VantroConfig.cmake
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/VantroTargets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VantroConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VantroConfig.cmake ${PROJECT_BINARY_DIR}/VantroConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT development)

file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(package IN ITEMS vantro vantro-platform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc
    @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
