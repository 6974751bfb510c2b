# GLEW for the Windows build: compiled from Debian's glew source package into glew32.dll,
# so the library DLL and its hosts share one set of GL entry points (a static GLEW in each
# would leave the host's pointers unloaded).
#
# TAVRIN_GLEW_SOURCE_DIR may name an unpacked GLEW source tree; otherwise the source package
# is fetched once into the build tree with apt-get, using private lists so the machine's apt
# configuration is left alone.

set(TAVRIN_GLEW_SOURCE_DIR "" CACHE PATH "Unpacked GLEW 2.2 source (empty: fetch Debian's glew source package)")

if(NOT TAVRIN_GLEW_SOURCE_DIR)
  set(_glew_work ${CMAKE_BINARY_DIR}/_deps/glew)
  set(_glew_unpacked ${_glew_work}/src)
  if(NOT EXISTS ${_glew_unpacked}/src/glew.c)
    message(STATUS "Fetching Debian's glew source package into ${_glew_work}")
    file(MAKE_DIRECTORY ${_glew_work}/apt/lists/partial ${_glew_work}/apt/cache/archives/partial ${_glew_work}/download)
    file(WRITE ${_glew_work}/apt/glew.list "deb-src http://deb.debian.org/debian bookworm main\n")
    set(_apt_options
      -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts=${_glew_work}/apt
      -o Dir::State::Lists=${_glew_work}/apt/lists -o Dir::Cache=${_glew_work}/apt/cache
      -o Debug::NoLocking=1 -o APT::Sandbox::User=root)
    execute_process(COMMAND apt-get -qq ${_apt_options} update
      RESULT_VARIABLE _result OUTPUT_QUIET ERROR_VARIABLE _error)
    if(_result EQUAL 0)
      execute_process(COMMAND apt-get -qq ${_apt_options} source --download-only glew
        WORKING_DIRECTORY ${_glew_work}/download RESULT_VARIABLE _result OUTPUT_QUIET ERROR_VARIABLE _error)
    endif()
    file(GLOB _glew_orig ${_glew_work}/download/glew_*.orig.tar.*)
    if(NOT _result EQUAL 0 OR NOT _glew_orig)
      message(FATAL_ERROR "Could not fetch the glew source package (set TAVRIN_GLEW_SOURCE_DIR to an unpacked GLEW 2.2 source):\n${_error}")
    endif()
    file(REMOVE_RECURSE ${_glew_work}/unpack)
    file(MAKE_DIRECTORY ${_glew_work}/unpack)
    execute_process(COMMAND ${CMAKE_COMMAND} -E tar xf ${_glew_orig} WORKING_DIRECTORY ${_glew_work}/unpack)
    file(GLOB _glew_dir ${_glew_work}/unpack/glew-*)
    file(REMOVE_RECURSE ${_glew_unpacked})
    file(RENAME ${_glew_dir} ${_glew_unpacked})
  endif()
  set(TAVRIN_GLEW_SOURCE_DIR ${_glew_unpacked} CACHE PATH "" FORCE)
endif()

if(NOT EXISTS ${TAVRIN_GLEW_SOURCE_DIR}/src/glew.c)
  message(FATAL_ERROR "No src/glew.c in TAVRIN_GLEW_SOURCE_DIR=${TAVRIN_GLEW_SOURCE_DIR}")
endif()

# Built the way GLEW's own build does it for GCC on Windows: glew.c brings its own DLL entry
# point, which clashes with the C runtime's unless the runtime is left out.
add_library(tavrin_glew SHARED ${TAVRIN_GLEW_SOURCE_DIR}/src/glew.c)
add_library(GLEW::GLEW ALIAS tavrin_glew)
set_target_properties(tavrin_glew PROPERTIES OUTPUT_NAME glew32 PREFIX "" EXPORT_NAME GLEW C_VISIBILITY_PRESET default)
target_compile_definitions(tavrin_glew PRIVATE GLEW_BUILD)
target_compile_options(tavrin_glew PRIVATE -fno-builtin -fno-stack-protector -w)
target_include_directories(tavrin_glew SYSTEM PUBLIC
  $<BUILD_INTERFACE:${TAVRIN_GLEW_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_options(tavrin_glew PRIVATE -nostdlib)
target_link_libraries(tavrin_glew PRIVATE opengl32 kernel32)
target_link_libraries(tavrin_glew INTERFACE opengl32)
