# Compares the names that a shared library exports with those that its version script publishes.
#   cmake -DLIBRARY=... -DMAP=... -DNM=... -P exported_names.cmake
execute_process(COMMAND ${NM} -D --defined-only --format=posix ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(exported)
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([A-Za-z_0-9]+)(@@?[^ ]+)? ([A-Z])" unused "${line}")
  if(CMAKE_MATCH_3 AND NOT CMAKE_MATCH_3 STREQUAL "A")
    list(APPEND exported ${CMAKE_MATCH_1})
  endif()
endforeach()

file(READ ${MAP} map)
# Names and nodes end with a semicolon, which means something to CMake. A node's end names the one that it goes on from.
string(REPLACE ";" "," map "${map}")
string(REGEX REPLACE "}[^,]*," "" map "${map}")
string(REGEX MATCHALL "[A-Za-z_0-9]+," published "${map}")
string(REPLACE "," "" published "${published}")

list(SORT exported)
list(SORT published)
if(NOT exported)
  message(FATAL_ERROR "${LIBRARY} exports nothing")
endif()
if(NOT exported STREQUAL published)
  message(FATAL_ERROR "exported and published names differ\nexported:  ${exported}\npublished: ${published}")
endif()
