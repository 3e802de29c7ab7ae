# Writes the module-definition file of RVDB4XX.DLL: one export for every
# function that the public header declares with KXAPI, named as the compiled
# objects define it (KXDINIT@8 on 32-bit x86, KXDINIT on x64). A declared
# function that no object defines stops the build, unless PARTIAL is set
# (a build of some source directories only).
#   cmake -DHEADER=... -DOBJECTS=<list file> -DNM=... -DOUT=... [-DUNDERSCORE=ON] [-DPARTIAL=ON] -P windows-def.cmake
file(READ ${HEADER} header)
string(REGEX MATCHALL "KXAPI[ \t\r\n]+[A-Za-z_0-9]+[ \t\r\n]*\\(" decls "${header}")
set(names)
foreach(d IN LISTS decls)
  string(REGEX REPLACE "KXAPI[ \t\r\n]+([A-Za-z_0-9]+).*" "\\1" n "${d}")
  list(APPEND names ${n})
endforeach()
list(REMOVE_DUPLICATES names)
list(SORT names)

file(STRINGS ${OBJECTS} objects)
list(FILTER objects EXCLUDE REGEX "^$")
execute_process(COMMAND ${NM} -g --defined-only ${objects}
                OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on the library's objects")
endif()
string(REPLACE "\n" ";" lines "${symbols}")
set(defined)
foreach(l IN LISTS lines)
  if(l MATCHES "^[0-9a-fA-F]+ T (.+)$")
    list(APPEND defined "${CMAKE_MATCH_1}")
  endif()
endforeach()

list(FILTER defined EXCLUDE REGEX "^_?_Z")  # C++ names are never exports

# 32-bit x86 symbols carry a leading underscore that the .def names omit.
if(UNDERSCORE)
  set(lead "_")
else()
  set(lead "")
endif()
set(text "LIBRARY RVDB4XX.DLL\nEXPORTS\n")
set(missing)
foreach(n IN LISTS names)
  set(found "")
  foreach(s IN LISTS defined)
    if(s MATCHES "^${lead}${n}(@[0-9]+)?$")
      string(LENGTH "${lead}" skip)
      string(SUBSTRING "${s}" ${skip} -1 found)
      break()
    endif()
  endforeach()
  if(found STREQUAL "")
    list(APPEND missing ${n})
  else()
    string(APPEND text "  ${found}\n")
  endif()
endforeach()
if(missing AND NOT PARTIAL)
  string(REPLACE ";" ", " m "${missing}")
  message(FATAL_ERROR "declared in the public header but not defined: ${m}")
endif()
file(WRITE ${OUT}.tmp "${text}")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUT}.tmp)
