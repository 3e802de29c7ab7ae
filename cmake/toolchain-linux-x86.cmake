# 32-bit x86 Linux with the host's compilers (g++-multilib): the sizes and
# alignment of the 32-bit Windows DLL, tested on Linux. The programs run
# under qemu-i386 (package qemu-user): ctest, the test discovery and the
# helper processes the tests start all go through it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_EXE_LINKER_FLAGS_INIT -m32)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
find_program(RVDB_QEMU_I386 qemu-i386 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${RVDB_QEMU_I386})
