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

# pkg-config files for builds that are not CMake. They locate the prefix from their own
# directory, so `cmake --install --prefix` anywhere gives working files.
set(_tavrin_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(TAVRIN_PC_PREFIX_FROM_PCDIR "")
  set(TAVRIN_PC_LIBDIR ${CMAKE_INSTALL_LIBDIR})
else()
  file(RELATIVE_PATH TAVRIN_PC_PREFIX_FROM_PCDIR /prefix/${_tavrin_pc_dir} /prefix)
  set(TAVRIN_PC_LIBDIR \${prefix}/${CMAKE_INSTALL_LIBDIR})
endif()
if(IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(TAVRIN_PC_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
else()
  set(TAVRIN_PC_INCLUDEDIR \${prefix}/${CMAKE_INSTALL_INCLUDEDIR})
endif()
if(WIN32)
  # MinGW has no .pc files for Eigen or the GLEW built here: name them directly.
  set(TAVRIN_PC_CORE_REQUIRES "")
  set(TAVRIN_PC_CORE_CFLAGS "-I${TAVRIN_EIGEN3_INCLUDE_DIR}")
  set(TAVRIN_PC_OPENGL_REQUIRES "")
  set(TAVRIN_PC_OPENGL_LIBS "-lglew32 -lopengl32 -lgdi32 -luser32")
else()
  set(TAVRIN_PC_CORE_REQUIRES "eigen3 >= 3.4")
  set(TAVRIN_PC_CORE_CFLAGS "")
  set(TAVRIN_PC_OPENGL_REQUIRES "glew gl")
  set(TAVRIN_PC_OPENGL_LIBS "")
endif()
foreach(_tavrin_pc tavrin-core tavrin-image tavrin-opengl)
  configure_file(cmake/${_tavrin_pc}.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${_tavrin_pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${_tavrin_pc}.pc DESTINATION ${_tavrin_pc_dir})
endforeach()
