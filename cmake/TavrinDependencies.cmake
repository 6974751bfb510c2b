# Finds (or, for the Windows build, builds) what the library needs.
# Eigen and stb are header-only; both builds read Debian's headers from /usr/include.

find_path(TAVRIN_STB_INCLUDE_DIR stb_image.h PATHS /usr/include/stb NO_CMAKE_FIND_ROOT_PATH
  DOC "Directory with stb_image.h and stb_image_write.h (Debian: libstb-dev)")
if(NOT TAVRIN_STB_INCLUDE_DIR)
  message(FATAL_ERROR "stb headers not found: install libstb-dev")
endif()

if(CMAKE_CROSSCOMPILING)
  find_path(TAVRIN_EIGEN3_INCLUDE_DIR Eigen/Core PATHS /usr/include/eigen3 NO_CMAKE_FIND_ROOT_PATH)
  if(NOT TAVRIN_EIGEN3_INCLUDE_DIR)
    message(FATAL_ERROR "Eigen 3 headers not found: install libeigen3-dev")
  endif()
  if(NOT TARGET Eigen3::Eigen)
    add_library(Eigen3::Eigen INTERFACE IMPORTED GLOBAL)
    # Only Eigen's own directory: the host's /usr/include must never reach the cross compiler.
    set_target_properties(Eigen3::Eigen PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${TAVRIN_EIGEN3_INCLUDE_DIR})
  endif()
else()
  find_package(Eigen3 3.4 REQUIRED NO_MODULE)
endif()

if(WIN32)
  include(GlewWindows)
else()
  set(OpenGL_GL_PREFERENCE GLVND)
  find_package(OpenGL REQUIRED COMPONENTS OpenGL EGL GLX)
  find_package(GLEW REQUIRED)
  find_package(X11 REQUIRED)
  if(NOT TARGET X11::Xrandr)
    message(FATAL_ERROR "XRandR headers not found: install libxrandr-dev")
  endif()
  find_package(Fontconfig REQUIRED)
  find_package(Freetype REQUIRED)
endif()
