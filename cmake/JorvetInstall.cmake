# The package: what find_package(jorvet) and pkg-config read. Targets and headers install with their libraries.

include(CMakePackageConfigHelpers)

set(JORVET_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/jorvet)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/jorvet-config.cmake.in ${PROJECT_BINARY_DIR}/jorvet-config.cmake
  INSTALL_DESTINATION ${JORVET_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/jorvet-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/jorvet-config.cmake ${PROJECT_BINARY_DIR}/jorvet-config-version.cmake
  DESTINATION ${JORVET_PACKAGE_DIR})
install(EXPORT jorvet-targets NAMESPACE jorvet:: DESTINATION ${JORVET_PACKAGE_DIR})

file(RELATIVE_PATH JORVET_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
if(NOT WIN32)
  set(JORVET_PC_PLATFORM " -ljorvet-platform")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/jorvet.pc.in ${PROJECT_BINARY_DIR}/jorvet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/jorvet.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
