# Fails when a source or header of the library includes a file by a path
# that climbs out of its folder ("../") or starts at the file system's root:
# such a path would reach any layer past the include roots.
#
#   cmake -DROOT=<repository> -DDIRS=<folders under ROOT> -P parent_includes.cmake

set(files)
foreach(d ${DIRS})
  file(GLOB_RECURSE found ${ROOT}/${d}/*.cpp ${ROOT}/${d}/*.h)
  list(APPEND files ${found})
endforeach()
list(LENGTH files count)
if(count EQUAL 0)
  message(FATAL_ERROR "no sources under ${ROOT}: ${DIRS}")
endif()

set(bad)
foreach(f ${files})
  file(STRINGS ${f} lines REGEX "^[ \t]*#[ \t]*include[ \t]*[\"<]")
  foreach(line ${lines})
    if(line MATCHES "include[ \t]*[\"<](/|[^\">]*\\.\\./)")
      file(RELATIVE_PATH rel ${ROOT} ${f})
      list(APPEND bad "${rel}: ${line}")
    endif()
  endforeach()
endforeach()

if(bad)
  string(REPLACE ";" "\n" bad "${bad}")
  message(FATAL_ERROR "includes that go around the layers:\n${bad}")
endif()
message(STATUS "${count} files, every include inside the include roots")
