# What distributions build with, for the optimised builds. Not with a sanitizer: that checks more, and
# takes the places of the same functions.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

function(harden_when_optimised check flag)
  set(CMAKE_REQUIRED_FLAGS -O2)
  check_cxx_compiler_flag("${flag}" ${check})
  if(${check})
    separate_arguments(flags UNIX_COMMAND "${flag}")
    add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${flags}>")
  endif()
endfunction()

harden_when_optimised(VORN_COMPILER_HAS_STACK_PROTECTOR -fstack-protector-strong)
if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")  # a site may ask for another level
  harden_when_optimised(VORN_COMPILER_HAS_FORTIFY "-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2")
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86|AMD64)$")
  harden_when_optimised(VORN_COMPILER_HAS_CF_PROTECTION -fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  harden_when_optimised(VORN_COMPILER_HAS_BRANCH_PROTECTION -mbranch-protection=standard)
endif()

set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
foreach(flag IN ITEMS relro now noexecstack)
  check_linker_flag(CXX LINKER:-z,${flag} VORN_LINKER_HAS_${flag})
  if(VORN_LINKER_HAS_${flag})
    add_link_options($<${optimised}:LINKER:-z,${flag}>)
  endif()
endforeach()
