include(CMakePackageConfigHelpers)

set(_tavrin_targets tavrin_core tavrin_image tavrin_opengl)
if(TARGET tavrin_glew)
  list(APPEND _tavrin_targets tavrin_glew)
  install(DIRECTORY ${TAVRIN_GLEW_SOURCE_DIR}/include/GL DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
install(TARGETS ${_tavrin_targets} EXPORT TavrinTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/core include/opengl DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TAVRIN_RUNTIME_DLLS)
  install(FILES ${TAVRIN_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(EXPORT TavrinTargets NAMESPACE Tavrin:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Tavrin)
configure_package_config_file(cmake/TavrinConfig.cmake.in ${PROJECT_BINARY_DIR}/TavrinConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Tavrin)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavrinConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TavrinConfig.cmake ${PROJECT_BINARY_DIR}/TavrinConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Tavrin)
