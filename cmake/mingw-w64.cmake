# Cross-compiles for 64-bit Windows on Linux with MinGW-w64 (Debian g++-mingw-w64-x86-64).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(_prefix x86_64-w64-mingw32)
# The win32 thread model: the plug-in starts no threads and must not need libwinpthread.
find_program(CMAKE_CXX_COMPILER NAMES ${_prefix}-g++-win32 ${_prefix}-g++ REQUIRED)
find_program(CMAKE_C_COMPILER NAMES ${_prefix}-gcc-win32 ${_prefix}-gcc REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${_prefix}-windres REQUIRED)
find_program(KV_OBJDUMP NAMES ${_prefix}-objdump)
set(CMAKE_FIND_ROOT_PATH /usr/${_prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
