# Compiles a probe file made of #include lines with the include directories
# and definitions of one layer of the library, and checks the outcome.
#
#   cmake -DCOMPILER=<c++> -DSTD=<flag> -DINCLUDES=<dirs> -DDEFINES=<defs>
#         -DHEADERS=<headers> -DEXPECT=found|missing [-DREAL=<file>]
#         -DPROBE=<probe.cpp> -P compile_probe.cmake
#
# EXPECT found: every header is found and the probe compiles.
# EXPECT missing: HEADERS is one header, REAL the file it names in the
# repository; REAL must exist, and the compiler must stop because it cannot
# find the header, and for no other reason.

foreach(var COMPILER STD HEADERS EXPECT PROBE)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "compile_probe: ${var} is not set")
  endif()
endforeach()

set(text "// Written by compile_probe.cmake.\n")
foreach(h ${HEADERS})
  string(APPEND text "#include \"${h}\"\n")
endforeach()
file(WRITE ${PROBE} "${text}")

set(args ${STD} -fsyntax-only)
foreach(d ${INCLUDES})
  list(APPEND args -I${d})
endforeach()
foreach(d ${DEFINES})
  list(APPEND args -D${d})
endforeach()

execute_process(COMMAND ${COMPILER} ${args} ${PROBE}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)

if(EXPECT STREQUAL "found")
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "expected ${HEADERS} to be found, but:\n${out}${err}")
  endif()
  message(STATUS "found: ${HEADERS}")
elseif(EXPECT STREQUAL "missing")
  list(LENGTH HEADERS count)
  if(NOT count EQUAL 1)
    message(FATAL_ERROR "compile_probe: a missing probe takes one header")
  endif()
  if(NOT EXISTS "${REAL}")
    message(FATAL_ERROR "${HEADERS} stands for ${REAL}, which does not exist: "
                        "the probe would prove nothing")
  endif()
  if(rc EQUAL 0)
    message(FATAL_ERROR "${HEADERS} was found, but this layer must not see it")
  endif()
  # GCC: "fatal error: H: No such file or directory"; Clang: "'H' file not found".
  string(REGEX REPLACE "([][+.*?^$|()\\\\])" "\\\\\\1" quoted "${HEADERS}")
  if(NOT err MATCHES "${quoted}'?:? (No such file or directory|file not found)")
    message(FATAL_ERROR "the compiler failed for another reason:\n${out}${err}")
  endif()
  message(STATUS "not found, as it must be: ${HEADERS}")
else()
  message(FATAL_ERROR "compile_probe: EXPECT is found or missing, not ${EXPECT}")
endif()
