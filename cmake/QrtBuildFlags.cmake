# The compiler flags of everything that is built here, as the interface library qrt_build_flags.

# A flag that opens an instruction set for all files would make the whole library need that processor,
# and a flag that reorders arithmetic would change results that are documented bit for bit.
set(refused_flags "-march=|-mavx|-mfma|-mf16c|-mbmi|-ffast-math|-Ofast|-funsafe-math|-fassociative-math")
string(APPEND refused_flags "|-freciprocal-math|-ffinite-math|-ffp-contract=(fast|on)|-mfpmath=387")
set(given_flags "${CMAKE_CXX_FLAGS}")
if(CMAKE_BUILD_TYPE)
  string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
  string(APPEND given_flags " ${CMAKE_CXX_FLAGS_${build_type}}")
endif()
string(REGEX REPLACE "-march=x86-64( |$)" "" given_flags "${given_flags}")
if(given_flags MATCHES "(^| )((${refused_flags})[^ ]*)")
  message(FATAL_ERROR
    "qrt_core can't be built with ${CMAKE_MATCH_2} in CMAKE_CXX_FLAGS: the files that need an "
    "instruction set get its flags from the build, and results are documented bit for bit.")
endif()
if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  message(FATAL_ERROR "qrt_core is for x86-64, not for ${CMAKE_SYSTEM_PROCESSOR}.")
endif()

add_library(qrt_build_flags INTERFACE)
target_compile_features(qrt_build_flags INTERFACE cxx_std_20)
# Both GCC and Clang fuse a multiplication and an addition of their own accord, even separate intrinsics.
target_compile_options(qrt_build_flags INTERFACE -ffp-contract=off)
# Nobody looks at the floating-point exception flags. For their sake GCC would branch where it can select, and
# leave loops with clamps unvectorised; results are the same either way.
target_compile_options(qrt_build_flags INTERFACE -fno-trapping-math)
target_compile_options(qrt_build_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
# A test of an option that no header defined would leave kernels out without a word.
target_compile_options(qrt_build_flags INTERFACE -Wundef)
# GCC 12 sees overlapping copies in plain concatenations of strings at -O3 (its bug 105651).
target_compile_options(qrt_build_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(QRT_WARNINGS_AS_ERRORS)
  target_compile_options(qrt_build_flags INTERFACE -Werror)
endif()

if(QRT_SANITIZE)
  target_compile_options(qrt_build_flags INTERFACE
    -fsanitize=${QRT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(qrt_build_flags INTERFACE
    $<$<CXX_COMPILER_ID:Clang>:-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitizer_ignorelist.txt>)
  # Null pointers and ends of objects are found by AddressSanitizer as well, without a tenth of the time to compile.
  if(QRT_SANITIZE MATCHES "address" AND QRT_SANITIZE MATCHES "undefined")
    target_compile_options(qrt_build_flags INTERFACE -fno-sanitize=null,object-size)
  endif()
  target_compile_definitions(qrt_build_flags INTERFACE _GLIBCXX_ASSERTIONS)
  target_link_options(qrt_build_flags INTERFACE -fsanitize=${QRT_SANITIZE})
endif()

# Each load of a vector would be asked whether its pointer is null, aligned and within its object: most of the time of
# a build, for what AddressSanitizer and pages without access behind all tensors show as well. What calls the library
# has no bytes that it takes for numbers in place.
add_library(qrt_vector_checks INTERFACE)
add_library(qrt_caller_checks INTERFACE)
if(QRT_SANITIZE MATCHES "undefined")
  target_compile_options(qrt_vector_checks INTERFACE -fno-sanitize=null,alignment,object-size,pointer-overflow)
  target_compile_options(qrt_caller_checks INTERFACE -fno-sanitize=alignment)
endif()

# What libraries and tool are made with besides: they read files of strangers. A function with an array on its stack
# checks it, calls of the C library know the sizes of what they write to, and what the loader has resolved is read-only.
# Sanitizers see the same and more.
add_library(qrt_hardening INTERFACE)
if(NOT QRT_SANITIZE)
  set(fortify_level 2)
  if((CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12) OR
      (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 9))
    set(fortify_level 3)
  endif()
  target_compile_options(qrt_hardening INTERFACE -fstack-protector-strong)
  # The headers of the C library check nothing, and warn, where nothing is optimised.
  target_compile_options(qrt_hardening INTERFACE
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${fortify_level}>")
  target_link_options(qrt_hardening INTERFACE LINKER:-z,relro LINKER:-z,now)
endif()

# What is made to be run here, and once, is linked by Clang's linker where there is one. It takes a tenth of the time for
# the builds for AddressSanitizer, which are large.
find_program(QRT_LLD NAMES ld.lld)
mark_as_advanced(QRT_LLD)
add_library(qrt_quick_link INTERFACE)
if(QRT_LLD)
  target_link_options(qrt_quick_link INTERFACE -fuse-ld=lld)
endif()
if(QRT_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_link_libraries(qrt_build_flags INTERFACE qrt_quick_link)
endif()

# A name of one source may hide that of another, and GCC takes them all for headers. Stands behind the flags of all.
add_library(qrt_together_flags INTERFACE)
target_compile_options(qrt_together_flags INTERFACE -Wno-shadow $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)

# qrt_compile_together(<target>): with QRT_COMPILE_TOGETHER, sources of a target that don't get in each other's way are
# compiled as one. Sources with flags or definitions of their own stay alone. Where two clash after an edit, CMake has to
# look again.
function(qrt_compile_together target)
  if(NOT QRT_COMPILE_TOGETHER)
    return()
  endif()
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  execute_process(
    COMMAND "${Python3_EXECUTABLE}" "${PROJECT_SOURCE_DIR}/cmake/source_batches.py" ${sources}
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
    OUTPUT_VARIABLE batches
    COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^\n]+" batches "${batches}")
  foreach(line IN LISTS batches)
    string(REGEX MATCH "^([0-9]+) (.*)$" line "${line}")
    set_source_files_properties("${CMAKE_MATCH_2}" PROPERTIES UNITY_GROUP "${CMAKE_MATCH_1}")
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  target_link_libraries(${target} PRIVATE qrt_together_flags)
endfunction()

# qrt_compile_quickly(<target>): for what calls those that do the work. Neither a sanitizer's finding nor a user's time
# depends on how well it is optimised, and it is half of what is compiled.
function(qrt_compile_quickly target)
  if(QRT_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
    target_link_libraries(${target} PRIVATE qrt_caller_checks)
  else()
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
  endif()
endfunction()

# qrt_precompile_standard_library(<target>): with QRT_PRECOMPILE, what most sources include from the standard library is
# compiled once for a target, which saves half of what a small source takes. A source that lacks an include
# is seen by the builds without. Not where GCC optimises: it then warns of what happens within such
# headers, and is wrong about plain concatenations of strings.
function(qrt_precompile_standard_library target)
  if(QRT_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <array> <cmath> <cstdint> <cstring> <functional> <limits> <map> <memory> <optional> <string>
      <string_view> <unordered_map> <utility> <vector>)
  endif()
endfunction()
