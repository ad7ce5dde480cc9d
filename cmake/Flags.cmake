# Compilers and flags of the project's own targets. They hang on the interface target `kelstdmt_own`, so that
# GoogleTest and a caller who adds this project as a subfolder keep theirs.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(KELSTDMT_CCACHE ccache)
if(KELSTDMT_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${KELSTDMT_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KELSTDMT_CCACHE})
endif()

add_library(kelstdmt_own INTERFACE)
target_compile_options(kelstdmt_own INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  "$<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes;-Wc++-compat>"
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)  # which GCC does not count among conversions

# What the sanitizers add to the code misleads GCC's search for uninitialised variables.
if(KELSTDMT_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kelstdmt_own INTERFACE -Wno-maybe-uninitialized)
endif()

# Callers may not replace single functions of the library, so calls inside one unit need not go through the
# symbol table. Addresses of exported functions still do: they compare equal in every module.
target_compile_options(kelstdmt_own INTERFACE $<$<CONFIG:Release>:-fno-semantic-interposition>)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  target_compile_options(kelstdmt_own INTERFACE -fno-plt)
else()
  # Files beyond 2 GiB and dates beyond 2038 on 32 bits. No public header shows a type that this changes.
  target_compile_definitions(kelstdmt_own INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# kelstdmt_add_test(NAME COMMAND...): a test with the options that the sanitizers need and a limit on its time.
# Where an emulator stands in for the machine, only programs that CMake itself starts can run, so scripts are left out.
function(kelstdmt_add_test name)
  if(CMAKE_CROSSCOMPILING_EMULATOR AND NOT TARGET ${ARGV1})
    return()
  endif()
  add_test(NAME ${name} COMMAND ${ARGN})
  set_tests_properties(${name} PROPERTIES
    TIMEOUT 300
    SKIP_RETURN_CODE 77
    ENVIRONMENT "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1;UBSAN_OPTIONS=print_stacktrace=1;TSAN_OPTIONS=second_deadlock_stack=1")
endfunction()
