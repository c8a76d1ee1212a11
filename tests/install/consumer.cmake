# Installs the built library into a fresh prefix and proves it usable from
# outside: the CMake package (find_package(vekutils)) and the pkg-config
# files each build the two examples, which then run against the installed
# files alone, without LD_LIBRARY_PATH.
#
#   cmake -DBUILD=<build dir> -DSOURCE=<repository root> -DWORK=<scratch dir>
#         -DGENERATOR=<generator> -DCC=<C compiler> -DCXX=<C++ compiler>
#         -DREADELF=<readelf> -DPKG_CONFIG=<pkg-config> -P consumer.cmake

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " cmd "${ARGN}")
    message(FATAL_ERROR "failed (${rc}): ${cmd}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

# Runs a program with no LD_LIBRARY_PATH and checks its last line.
function(run_example program expect)
  run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${program})
  if(NOT out MATCHES "${expect}")
    message(FATAL_ERROR "${program} printed:\n${out}\nexpected: ${expect}")
  endif()
  message(STATUS "${program}: ran")
endfunction()

# The programs must load the installed libraries: every folder of their run
# path lies in the prefix.
function(check_runpath program)
  run(${READELF} -d ${program})
  if(NOT out MATCHES "Library (runpath|rpath): \\[([^]]*)\\]")
    message(FATAL_ERROR "${program} has no run path:\n${out}")
  endif()
  string(REPLACE ":" ";" dirs "${CMAKE_MATCH_2}")
  foreach(dir ${dirs})
    string(FIND "${dir}" "${prefix}/" at)
    if(NOT at EQUAL 0)
      message(FATAL_ERROR "${program} loads from ${dir}, outside ${prefix}")
    endif()
  endforeach()
endfunction()

file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

# The library: versioned file, soname link, soname, and a run path that
# finds the host stand-ins beside it.
file(GLOB libs ${prefix}/lib*/libvekutils.so.*.*.* ${prefix}/lib*/*/libvekutils.so.*.*.*)
list(LENGTH libs count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "want one installed libvekutils.so.X.Y.Z, found: ${libs}")
endif()
get_filename_component(libdir ${libs} DIRECTORY)
foreach(link libvekutils.so libvekutils.so.1 libvekhostmaths.so.1 libvekhostcontainer.so.1
        libvekhostutils.so.1)
  if(NOT EXISTS ${libdir}/${link})
    message(FATAL_ERROR "not installed: ${libdir}/${link}")
  endif()
endforeach()
run(${READELF} -d ${libs})
if(NOT out MATCHES "Library soname: \\[libvekutils\\.so\\.1\\]")
  message(FATAL_ERROR "soname of ${libs} is not libvekutils.so.1:\n${out}")
endif()
if(NOT out MATCHES "Library runpath: \\[\\$ORIGIN\\]")
  message(FATAL_ERROR "run path of ${libs} is not $ORIGIN:\n${out}")
endif()
foreach(header telmira.h muLinearSolver.h coDynArr.h coFixedArr.h utAssert.h host_export.h)
  if(NOT EXISTS ${prefix}/include/vekutils/${header})
    message(FATAL_ERROR "header not installed: include/vekutils/${header}")
  endif()
endforeach()

# 1. A CMake project: find_package(vekutils), the two targets.
run(${CMAKE_COMMAND} -S ${SOURCE}/examples -B ${WORK}/cmake-build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK}/cmake-build)
check_runpath(${WORK}/cmake-build/example-c)
check_runpath(${WORK}/cmake-build/example-facade)
run_example(${WORK}/cmake-build/example-c "solved\n$")
run_example(${WORK}/cmake-build/example-facade "x\\[0\\] = 1\nx\\[1\\] = 1\nx\\[2\\] = 1\n$")

# 2. A plain build with pkg-config; the program finds the library through
# the run path that the build gives it (-Wl,-rpath,LIBDIR).
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
run(${PKG_CONFIG} --variable=libdir vekutils)
string(STRIP "${out}" pc_libdir)
get_filename_component(pc_libdir ${pc_libdir} REALPATH)
get_filename_component(real_libdir ${libdir} REALPATH)
if(NOT pc_libdir STREQUAL real_libdir)
  message(FATAL_ERROR "pkg-config's libdir ${pc_libdir} is not ${real_libdir}")
endif()
run(${PKG_CONFIG} --cflags --libs vekutils)
string(STRIP "${out}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CC} ${SOURCE}/examples/example_c.c -o ${WORK}/pc-example-c ${flags} -lm
    -Wl,-rpath,${pc_libdir})
run(${PKG_CONFIG} --cflags --libs vekutils-facade)
string(STRIP "${out}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${SOURCE}/examples/example_facade.cpp -o ${WORK}/pc-example-facade
    ${flags} -Wl,-rpath,${pc_libdir})
check_runpath(${WORK}/pc-example-c)
check_runpath(${WORK}/pc-example-facade)
run_example(${WORK}/pc-example-c "solved\n$")
run_example(${WORK}/pc-example-facade "x\\[0\\] = 1\nx\\[1\\] = 1\nx\\[2\\] = 1\n$")

# 3. The Python package, when it was built: importable from the prefix, and
# its extension loads the installed library. (No semicolons in the program:
# the arguments pass through a list.)
if(PYTHON AND EXISTS ${BUILD}/python/vekutils/__init__.py)
  file(GLOB_RECURSE packages ${prefix}/__init__.py)
  list(FILTER packages INCLUDE REGEX "/vekutils/__init__.py$")
  list(LENGTH packages count)
  if(NOT count EQUAL 1)
    message(FATAL_ERROR "want one installed vekutils package, found: ${packages}")
  endif()
  get_filename_component(site ${packages} DIRECTORY)
  get_filename_component(site ${site} DIRECTORY)
  run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH PYTHONPATH=${site} ${PYTHON} -c
      "import vekutils, numpy, scipy.sparse as sp\nx = vekutils.solve(sp.identity(3, format='csr') * 2 + sp.eye(3, k=1), numpy.ones(3))\nprint(vekutils.library_version(), vekutils.__file__, round(float(x[0]), 12))")
  if(NOT out MATCHES "^1\\.[0-9]+\\.[0-9]+ ${site}/vekutils/__init__.py 0\\.375\n$")
    message(FATAL_ERROR "the installed Python package printed:\n${out}")
  endif()
  message(STATUS "Python package in ${site}: ran")
endif()
