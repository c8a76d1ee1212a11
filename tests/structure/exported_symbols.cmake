# Compares the dynamic symbols that a shared library defines with a list.
#
#   cmake -DNM=<nm> -DLIBRARY=<lib.so> -DEXPECTED=<list file> -P exported_symbols.cmake
#
# The list holds one demangled name a line; blank lines and lines starting
# with # are skipped. Both the names the library exports beyond the list
# and the names of the list it does not export are errors.

execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}:\n${err}")
endif()

# Lines of nm are "ADDRESS TYPE NAME"; names may hold blanks and
# semicolons, which the list commands below must not split at.
string(REPLACE ";" "<semicolon>" out "${out}")
string(REPLACE "\n" ";" lines "${out}")
set(actual)
foreach(line ${lines})
  if(line MATCHES "^[0-9a-fA-F]* *[A-Za-z] (.+)$")
    list(APPEND actual "${CMAKE_MATCH_1}")
  elseif(NOT line STREQUAL "")
    message(FATAL_ERROR "cannot read this line of nm: ${line}")
  endif()
endforeach()

file(STRINGS ${EXPECTED} listed)
set(expected)
foreach(line ${listed})
  string(STRIP "${line}" line)
  if(NOT line STREQUAL "" AND NOT line MATCHES "^#")
    string(REPLACE ";" "<semicolon>" line "${line}")
    list(APPEND expected "${line}")
  endif()
endforeach()
if(NOT expected)
  message(FATAL_ERROR "${EXPECTED} lists no symbol")
endif()

set(extra ${actual})
list(REMOVE_ITEM extra ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(report "")
foreach(name ${extra})
  string(APPEND report "  exported but not public: ${name}\n")
endforeach()
foreach(name ${missing})
  string(APPEND report "  public but not exported: ${name}\n")
endforeach()
list(LENGTH actual n_actual)
if(NOT report STREQUAL "")
  string(REPLACE "<semicolon>" ";" report "${report}")
  message(FATAL_ERROR "${LIBRARY} exports ${n_actual} symbols:\n${report}")
endif()
message(STATUS "${LIBRARY} exports the ${n_actual} symbols of the list")
