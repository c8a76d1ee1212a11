# Fails when a shared library takes any of the named routines from another
# library: the dense products and factorizations that it must bring itself
# or look up at run time.
#
#   cmake -DNM=<nm> -DLIBRARY=<lib.so> "-DROUTINES=<name>;..." -P imported_symbols.cmake
#
# A name of ROUTINES is a Fortran routine without its precision letter and
# trailing underscore (gemm); each stands for its s, d, c and z forms.

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}:\n${err}")
endif()
if(NOT ROUTINES)
  message(FATAL_ERROR "no routines named")
endif()

string(REPLACE ";" "|" alternatives "${ROUTINES}")
set(pattern "^[sdcz](${alternatives})_$")
string(REPLACE ";" "<semicolon>" out "${out}")
string(REPLACE "\n" ";" lines "${out}")
set(count 0)
set(report "")
foreach(line ${lines})
  if(line STREQUAL "")
    continue()
  endif()
  if(NOT line MATCHES "^ *[A-Za-z] (.+)$")
    message(FATAL_ERROR "cannot read this line of nm: ${line}")
  endif()
  math(EXPR count "${count} + 1")
  # A versioned name (dgemm_@VERSION) counts as the name.
  string(REGEX REPLACE "@.*$" "" name "${CMAKE_MATCH_1}")
  if(name MATCHES "${pattern}")
    string(APPEND report "  ${name}\n")
  endif()
endforeach()
# Every library of this kind takes something from the C library; no line
# at all means nm did not read what we think.
if(count EQUAL 0)
  message(FATAL_ERROR "${NM} lists no undefined symbol of ${LIBRARY}")
endif()
if(NOT report STREQUAL "")
  message(FATAL_ERROR "${LIBRARY} imports routines it must not:\n${report}")
endif()
message(STATUS "${LIBRARY} imports ${count} symbols, none of ${ROUTINES}")
