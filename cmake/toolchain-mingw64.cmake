# Cross build for x86_64 Windows with Debian's mingw-w64 compilers.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(RVDB_MINGW_PREFIX x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)
# Test programs run under Wine (set WINEPREFIX and WINEDEBUG=-all first;
# scripts/test-windows.sh does).
if(EXISTS /usr/lib/wine/wine64)
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
endif()
