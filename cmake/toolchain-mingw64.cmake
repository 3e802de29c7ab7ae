# Cross build for x86_64 Windows with Debian's mingw-w64 compilers.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(RVDB_MINGW_PREFIX x86_64-w64-mingw32)
# The "posix" thread model gives std::mutex and std::thread (GoogleTest needs
# them); the build links its winpthread statically.
set(CMAKE_C_COMPILER ${RVDB_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${RVDB_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${RVDB_MINGW_PREFIX}-windres)
set(CMAKE_NM ${RVDB_MINGW_PREFIX}-nm CACHE FILEPATH "")
set(CMAKE_OBJDUMP ${RVDB_MINGW_PREFIX}-objdump CACHE FILEPATH "")
set(CMAKE_DLLTOOL ${RVDB_MINGW_PREFIX}-dlltool CACHE FILEPATH "")
set(CMAKE_FIND_ROOT_PATH /usr/${RVDB_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Test programs run under Wine (set WINEPREFIX and WINEDEBUG=-all first;
# scripts/test-windows.sh does).
if(EXISTS /usr/lib/wine/wine64)
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
endif()
