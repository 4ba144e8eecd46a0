# Compiles and links what is shipped so that a fault of memory is harder to use. Not for tests and not for sanitizers:
# both build in ways that the checks do not go with.
#
# The level 3 of _FORTIFY_SOURCE also checks buffers whose size is known at run time alone, as those of replies are.
# Without optimisation it does nothing but warn.
include(CheckPIESupported)
check_pie_supported()

function(harden)
  if(VESK_SANITIZE)
    return()
  endif()
  set(optimized $<NOT:$<CONFIG:Debug>>)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE
      -fstack-protector-strong -fstack-clash-protection
      $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-fcf-protection>
      $<${optimized}:-U_FORTIFY_SOURCE> $<${optimized}:-D_FORTIFY_SOURCE=3>)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "SHARED_LIBRARY|EXECUTABLE")
      target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
    endif()
  endforeach()
endfunction()
