# Most of the time that a source takes to compile goes to its headers. The tests, and sanitized programs, are therefore
# compiled several sources at a time. In the other builds nearly each source of the programs is compiled by itself, which shows
# an include that is missing, and those of the libraries always are: a program may bring functions of its own in place of
# some.

# From here on in the calling directory and below.
macro(compile_together num_sources)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE ${num_sources})
  # The sources come as if they were headers, whose own types must not be parts of others.
  add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endmacro()

# Sources that give a name of their own to what another source of their target gives it to.
function(compile_alone)
  set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
