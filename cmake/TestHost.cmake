# Where the tests run. A 32-bit build whose programs the kernel does not run gets Debian's user-mode
# emulator; VORN_FORCE_EMULATOR=ON asks for it where they do run.
set(VORN_FORCE_EMULATOR OFF CACHE BOOL "Run the tests of a 32-bit build under the emulator anyway")

if(NOT CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  try_run(VORN_RUNS_HERE VORN_COMPILES_HERE ${CMAKE_BINARY_DIR} ${CMAKE_CURRENT_LIST_DIR}/runs_here.cpp)
  if(VORN_FORCE_EMULATOR OR NOT VORN_RUNS_HERE EQUAL 0)
    find_program(VORN_EMULATOR qemu-i386 REQUIRED)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VORN_EMULATOR})
  endif()
endif()
if(CMAKE_CROSSCOMPILING_EMULATOR)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  message(STATUS "The tests run under: ${emulator}")
  add_compile_definitions(VORN_TEST_EMULATOR="${emulator}")
endif()
if(VORN_SANITIZE)
  add_compile_definitions(VORN_TEST_SANITIZER="${VORN_SANITIZE}")  # no compiler's own macro: they differ
endif()

# Sets `variable` to the path under which a test starts the built program `target` with its
# arguments: the program, or a script that gives it to the emulator and keeps its process id.
function(program_path variable target)
  set(path $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(path ${CMAKE_BINARY_DIR}/emulated/${target})
    file(GENERATE OUTPUT ${path}
      CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${target}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endif()
  set(${variable} ${path} PARENT_SCOPE)
endfunction()

# Adds a test of processes that need of the kernel what the emulator does not pass on: there it only
# says so. It also skips itself, with code 77, where something else is lacking.
function(add_native_test name needed)
  set(command ${ARGN})
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(command sh -c "echo 'skipped: the emulator (${emulator}) does not do ${needed}' && exit 77")
  endif()
  add_test(NAME ${name} COMMAND ${command})
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77)
endfunction()
