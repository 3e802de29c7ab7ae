# Windows builds (mingw-w64 cross compilers or a native MinGW toolchain).
#
# RVDB4XX.DLL exports exactly the functions that include/rvdb4xx.h declares
# with KXAPI, under their undecorated names, through a module-definition
# file generated at build time from the header and the compiled objects.
# On 32-bit x86 every export is __stdcall; the .def file lists the decorated
# names (KXDINIT@8) and the linker's --kill-at strips the decoration from the
# export table, while the import library (written by dlltool) keeps the
# decorated names that callers compiled against the header refer to. The C
# and C++ runtimes of the compiler are linked statically, so the DLL needs
# only system DLLs.

set(RVDB_WIN_OUT ${CMAKE_BINARY_DIR}/bin)
# Executables land beside the DLL so that they find it when they run.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${RVDB_WIN_OUT})

if(NOT CMAKE_NM)
  find_program(CMAKE_NM NAMES ${RVDB_MINGW_PREFIX}-nm nm REQUIRED)
endif()

set(RVDB_DEF ${CMAKE_BINARY_DIR}/RVDB4XX.def)
set(RVDB_OBJ_LIST ${CMAKE_BINARY_DIR}/rvdb4xx_objects.txt)
file(GENERATE OUTPUT ${RVDB_OBJ_LIST}
     CONTENT "$<JOIN:$<TARGET_OBJECTS:rvdb4xx_objs>,\n>\n")
if(RVDB_ONLY_DIRS)
  set(RVDB_DEF_PARTIAL ON)
else()
  set(RVDB_DEF_PARTIAL OFF)
endif()
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(RVDB_DEF_UNDERSCORE ON)
else()
  set(RVDB_DEF_UNDERSCORE OFF)
endif()
add_custom_command(
  OUTPUT ${RVDB_DEF}
  COMMAND ${CMAKE_COMMAND}
          -DHEADER=${CMAKE_SOURCE_DIR}/include/rvdb4xx.h
          -DOBJECTS=${RVDB_OBJ_LIST}
          -DNM=${CMAKE_NM}
          -DOUT=${RVDB_DEF}
          -DPARTIAL=${RVDB_DEF_PARTIAL}
          -DUNDERSCORE=${RVDB_DEF_UNDERSCORE}
          -P ${CMAKE_SOURCE_DIR}/cmake/windows-def.cmake
  DEPENDS ${CMAKE_SOURCE_DIR}/include/rvdb4xx.h
          ${CMAKE_SOURCE_DIR}/cmake/windows-def.cmake
          $<TARGET_OBJECTS:rvdb4xx_objs>
          ${RVDB_OBJ_LIST}
  COMMENT "Generating RVDB4XX.def from the public header"
  VERBATIM)
add_custom_target(rvdb4xx_def DEPENDS ${RVDB_DEF})
add_dependencies(rvdb4xx_def rvdb4xx_objs)
add_dependencies(rvdb4xx rvdb4xx_def)

set_target_properties(rvdb4xx PROPERTIES
  PREFIX ""
  OUTPUT_NAME RVDB4XX
  SUFFIX ".DLL"
  IMPORT_PREFIX ""
  IMPORT_SUFFIX ".lib"
  RUNTIME_OUTPUT_DIRECTORY ${RVDB_WIN_OUT}
  ARCHIVE_OUTPUT_DIRECTORY ${RVDB_WIN_OUT}
  LINK_DEPENDS ${RVDB_DEF})
target_link_options(rvdb4xx PRIVATE
  ${RVDB_DEF}
  -Wl,--no-undefined
  -Wl,--enable-stdcall-fixup
  -static-libgcc -static-libstdc++ -static)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_link_options(rvdb4xx PRIVATE -Wl,--kill-at)
  # The linker's own import library would name the stripped exports; the
  # one callers link with must map KXDINIT@8 (what the header makes them
  # call) to the export KXDINIT, which dlltool -k writes from the .def.
  if(NOT CMAKE_DLLTOOL)
    find_program(CMAKE_DLLTOOL NAMES ${RVDB_MINGW_PREFIX}-dlltool dlltool REQUIRED)
  endif()
  add_custom_command(TARGET rvdb4xx POST_BUILD
    COMMAND ${CMAKE_DLLTOOL} -k -d ${RVDB_DEF} -D RVDB4XX.DLL -l $<TARGET_LINKER_FILE:rvdb4xx>
    COMMENT "Writing the import library of RVDB4XX.DLL"
    VERBATIM)
endif()

# Programs (demo, helpers, tests) carry their runtimes too, so that they run
# under Wine or on a bare Windows without MinGW's DLLs on the path.
add_link_options(-static-libgcc -static-libstdc++ -static)
