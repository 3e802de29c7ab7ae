# What both mingw-w64 toolchain files share; they set CMAKE_SYSTEM_PROCESSOR
# and RVDB_MINGW_PREFIX first.
set(CMAKE_SYSTEM_NAME Windows)
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
