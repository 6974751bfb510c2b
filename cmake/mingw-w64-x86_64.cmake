# Cross build for Windows x86-64 with MinGW-w64, posix thread model (GoogleTest needs it).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Tests and examples run under Wine.
find_program(TAVRIN_WINE NAMES wine wine-stable wine64 PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
if(TAVRIN_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TAVRIN_WINE})
endif()
