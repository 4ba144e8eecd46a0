# Most of the time that a source takes to compile goes to its headers. What most sources of the programs and of their tests
# include is therefore compiled once, and the tests, and sanitized programs, are compiled several sources at a time. Sources of
# the libraries are always compiled by themselves: a program may bring functions of its own in place of some.
set(COMMON_HEADERS <algorithm> <array> <chrono> <filesystem> <functional> <memory> <optional> <string> <string_view>
  <utility> <vector>)

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
