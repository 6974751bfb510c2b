# Windows: the library and its hosts share MinGW's shared C++ runtime (a static one on either
# side gives the host its own std::cout, and the library's diagnostics could not be captured).
# The runtime DLLs are copied beside the library's DLL; hosts elsewhere call
# tavrin_deploy_runtime(<target>) to get the library, GLEW and the runtime beside them.

set(TAVRIN_RUNTIME_DLLS "")
if(WIN32 AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  foreach(_dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${_dll}
      OUTPUT_VARIABLE _path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(EXISTS "${_path}")
      get_filename_component(_path "${_path}" REALPATH)
      list(APPEND TAVRIN_RUNTIME_DLLS "${_path}")
    endif()
  endforeach()
endif()
set(TAVRIN_RUNTIME_DLLS "${TAVRIN_RUNTIME_DLLS}" CACHE INTERNAL "")

function(tavrin_copy_runtime_dlls target)
  if(TAVRIN_RUNTIME_DLLS)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy_if_different ${TAVRIN_RUNTIME_DLLS} $<TARGET_FILE_DIR:${target}>
      VERBATIM)
  endif()
endfunction()

# Copies the library DLL, glew32.dll and the C++ runtime beside a host executable (Windows only).
function(tavrin_deploy_runtime target)
  if(WIN32)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy_if_different
        $<TARGET_FILE:Tavrin::OpenGL> $<TARGET_FILE:GLEW::GLEW> ${TAVRIN_RUNTIME_DLLS} $<TARGET_FILE_DIR:${target}>
      VERBATIM)
  endif()
endfunction()
