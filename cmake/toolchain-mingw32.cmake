# Cross build for i686 Windows with Debian's mingw-w64 compilers.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(RVDB_MINGW_PREFIX i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)
