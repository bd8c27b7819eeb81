# Libraries, headers, and for each a CMake package (kt7lib::kt7lib, kt7photo::kt7photo) and a pkg-config
# file.
include(CMakePackageConfigHelpers)

file(RELATIVE_PATH include_from_lib
  "${CMAKE_INSTALL_FULL_LIBDIR}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")

function(kt7_install_library name)
  install(TARGETS ${name} EXPORT ${name}Targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT library NAMELINK_COMPONENT development)
  install(DIRECTORY include/${name} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
  install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${folder}
    COMPONENT development)
  configure_package_config_file(cmake/${name}Config.cmake.in ${name}Config.cmake
    INSTALL_DESTINATION ${folder})
  write_basic_package_version_file(${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake"
    DESTINATION ${folder} COMPONENT development)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${name}.pc"
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

kt7_install_library(kt7lib)
kt7_install_library(kt7photo)
install(FILES "$<TARGET_FILE_DIR:kt7lib>/libkt7lib.so" DESTINATION ${CMAKE_INSTALL_LIBDIR}
  COMPONENT development)
