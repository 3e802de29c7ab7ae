# What `cmake --install` puts under the prefix: the library, the header, the
# rvdb tool, a CMake package (find_package(rvdb4xx) gives rvdb4xx::rvdb4xx)
# and rvdb4xx.pc for pkg-config.
include(CMakePackageConfigHelpers)
if(NOT WIN32)
  set_target_properties(rvdb4xx PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
endif()
install(TARGETS rvdb4xx EXPORT rvdb4xxTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_SOURCE_DIR}/include/rvdb4xx.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET rvdb)
  # The installed tool finds the library beside it, under any prefix.
  set_target_properties(rvdb PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS rvdb RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rvdb4xx)
install(EXPORT rvdb4xxTargets NAMESPACE rvdb4xx:: DESTINATION ${package_dir})
file(WRITE ${CMAKE_BINARY_DIR}/rvdb4xxConfig.cmake.in
     "@PACKAGE_INIT@\ninclude(\"\${CMAKE_CURRENT_LIST_DIR}/rvdb4xxTargets.cmake\")\n")
configure_package_config_file(${CMAKE_BINARY_DIR}/rvdb4xxConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/rvdb4xxConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/rvdb4xxConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/rvdb4xxConfig.cmake ${CMAKE_BINARY_DIR}/rvdb4xxConfigVersion.cmake
        DESTINATION ${package_dir})
# pkg-config: paths relative to where the .pc file is found, so that any
# prefix given at install time works.
file(RELATIVE_PATH pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
file(WRITE ${CMAKE_BINARY_DIR}/rvdb4xx.pc
     "prefix=\${pcfiledir}/${pc_to_prefix}\n"
     "libdir=\${prefix}/${CMAKE_INSTALL_LIBDIR}\n"
     "includedir=\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}\n\n"
     "Name: rvdb4xx\nDescription: xBase engine: DBF tables, NTX indexes, dates and key expressions\n"
     "Version: ${PROJECT_VERSION}\nLibs: -L\${libdir} -lrvdb4xx\nCflags: -I\${includedir}\n")
install(FILES ${CMAKE_BINARY_DIR}/rvdb4xx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
