# Library, headers, CMake package (kt7lib::kt7lib) and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS kt7lib EXPORT kt7libTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES "$<TARGET_FILE_DIR:kt7lib>/libkt7lib.so" DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/kt7lib DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT kt7libTargets NAMESPACE kt7lib::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kt7lib)

configure_package_config_file(cmake/kt7libConfig.cmake.in kt7libConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kt7lib)
write_basic_package_version_file(kt7libConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/kt7libConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/kt7libConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kt7lib)

configure_file(cmake/kt7lib.pc.in kt7lib.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/kt7lib.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
