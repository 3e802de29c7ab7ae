# GoogleTest built from the sources of Debian's libgtest-dev (or
# GTEST_SOURCE_DIR) with the project's own compiler and flags: for the
# builds whose test programs cannot link the system's 64-bit Linux library
# (the Windows cross builds, the 32-bit Linux build).
macro(rvdb_gtest_from_source)
  if(NOT TARGET GTest::gtest)
    if(NOT GTEST_SOURCE_DIR)
      set(GTEST_SOURCE_DIR /usr/src/googletest)
    endif()
    if(NOT EXISTS ${GTEST_SOURCE_DIR}/CMakeLists.txt)
      message(FATAL_ERROR "GoogleTest sources not found at ${GTEST_SOURCE_DIR} "
                          "(install libgtest-dev or set GTEST_SOURCE_DIR)")
    endif()
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
    add_subdirectory(${GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # GoogleTest's own sources are not held to this project's warning set.
    target_compile_options(gtest PRIVATE -w)
    target_compile_options(gtest_main PRIVATE -w)
    # (GoogleTest 1.12 and later define the GTest:: aliases themselves.)
    if(NOT TARGET GTest::gtest)
      add_library(GTest::gtest ALIAS gtest)
      add_library(GTest::gtest_main ALIAS gtest_main)
    endif()
  endif()
endmacro()
