# libqrt_core.a and libqrt_core.so, made of the same objects.
#
# The name of a source file says how it is compiled, so that a new kernel needs no edit here:
#   *_sse.cpp    baseline x86-64 (SSE2), left out with QRT_WITH_SSE=OFF
#   *_avx.cpp    AVX without AVX2, FMA and F16C, left out with QRT_WITH_AVX=OFF
#   *_fma.cpp    AVX and FMA, left out with QRT_WITH_AVX=OFF
#   *_avx2.cpp   AVX2 without FMA and F16C, left out with QRT_WITH_AVX=OFF
#   *_avx512.cpp AVX-512 F, VL, BW and DQ, left out with QRT_WITH_AVX=OFF
#   *_sgemm.cpp  baseline, left out with QRT_WITH_SGEMM=OFF
#   others       baseline
# Everything in kernel/extension is left out with QRT_WITH_EXTENSIONS=OFF.

find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED DOC "Folder that holds rapidjson/")
mark_as_advanced(RAPIDJSON_INCLUDE_DIR)

if(QRT_HALF_INCLUDE_DIR AND NOT EXISTS "${QRT_HALF_INCLUDE_DIR}/half.hpp")
  message(FATAL_ERROR "QRT_HALF_INCLUDE_DIR: there is no ${QRT_HALF_INCLUDE_DIR}/half.hpp")
endif()
foreach(switch WITH_SSE WITH_AVX WITH_SGEMM WITH_EXTENSIONS)
  if(QRT_${switch})
    set(QRT_${switch}_VALUE 1)
  else()
    set(QRT_${switch}_VALUE 0)
  endif()
endforeach()
if(QRT_HALF_INCLUDE_DIR)
  set(QRT_USE_INSTALLED_HALF_VALUE 1)
else()
  set(QRT_USE_INSTALLED_HALF_VALUE 0)
endif()
set(QRT_GENERATED_INCLUDE_DIR "${PROJECT_BINARY_DIR}/generated")
configure_file(
  "${PROJECT_SOURCE_DIR}/qrt_core/utility/build_options.h.in"
  "${QRT_GENERATED_INCLUDE_DIR}/qrt_core/utility/build_options.h" @ONLY)

# What code that includes our headers needs, inside this build and in a project that embeds it.
function(qrt_set_usage target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  target_include_directories(${target} PUBLIC
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
    "$<BUILD_INTERFACE:${QRT_GENERATED_INCLUDE_DIR}>")
  if(QRT_HALF_INCLUDE_DIR)
    target_compile_definitions(${target} PUBLIC HALF_ROUND_STYLE=-1)
    target_include_directories(${target} SYSTEM PUBLIC "$<BUILD_INTERFACE:${QRT_HALF_INCLUDE_DIR}>")
  endif()
endfunction()

file(GLOB_RECURSE library_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/qrt_core/*.cpp")
if(NOT QRT_WITH_EXTENSIONS)
  list(FILTER library_sources EXCLUDE REGEX "/qrt_core/kernel/extension/")
endif()
set(sse_sources ${library_sources})
set(avx_sources ${library_sources})
set(fma_sources ${library_sources})
set(avx2_sources ${library_sources})
set(avx512_sources ${library_sources})
set(sgemm_sources ${library_sources})
list(FILTER sse_sources INCLUDE REGEX "_sse\\.cpp$")
list(FILTER avx_sources INCLUDE REGEX "_avx\\.cpp$")
list(FILTER fma_sources INCLUDE REGEX "_fma\\.cpp$")
list(FILTER avx2_sources INCLUDE REGEX "_avx2\\.cpp$")
list(FILTER avx512_sources INCLUDE REGEX "_avx512\\.cpp$")
list(FILTER sgemm_sources INCLUDE REGEX "_sgemm\\.cpp$")
set(base_sources ${library_sources})
list(FILTER base_sources EXCLUDE REGEX "_(sse|avx|fma|avx2|avx512|sgemm)\\.cpp$")

set(QRT_OBJECT_SETS "")
# One set of objects: qrt_add_objects(<name> <sources> [flags...])
function(qrt_add_objects name sources)
  if(NOT ${sources})
    return()
  endif()
  add_library(qrt_objects_${name} OBJECT ${${sources}})
  qrt_set_usage(qrt_objects_${name})
  target_link_libraries(qrt_objects_${name} PRIVATE qrt_build_flags qrt_hardening)
  if(NOT name STREQUAL "base")
    target_link_libraries(qrt_objects_${name} PRIVATE qrt_vector_checks)
  endif()
  target_include_directories(qrt_objects_${name} SYSTEM PRIVATE "${RAPIDJSON_INCLUDE_DIR}")
  # Steps of recurrent networks call expf and tanhf for each number: straight, without a stub that jumps there.
  target_compile_options(qrt_objects_${name} PRIVATE -fno-plt)
  # Unoptimised, a core of unrolled vectors takes a compiler twice as long as optimised. Calls stay calls: the check of
  # object files finds an inline function that leaves its instruction set by its symbol.
  if(name MATCHES "fma|avx")
    target_compile_options(qrt_objects_${name} PRIVATE $<$<CONFIG:Debug>:-O1> $<$<CONFIG:Debug>:-fno-inline>)
  endif()
  # The same for checks, with less code: tiles of few pixels. Tests of optimised builds run the others.
  if(name MATCHES "fma|avx512")
    if(QRT_SANITIZE)
      target_compile_definitions(qrt_objects_${name} PRIVATE QRT_SMALL_TILES)
    else()
      target_compile_definitions(qrt_objects_${name} PRIVATE $<$<CONFIG:Debug>:QRT_SMALL_TILES>)
    endif()
  endif()
  # Such code has thousands of accesses and locals in a function: checks are called instead of written out, and locals
  # are watched while a function runs only, which takes a quarter to nearly half off.
  if(QRT_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND name MATCHES "fma|avx512")
    target_compile_options(qrt_objects_${name} PRIVATE -g0 -fno-sanitize-address-use-after-scope
      "SHELL:-mllvm -asan-instrumentation-with-call-threshold=500")
  endif()
  # What vectors compute doesn't lead a fuzzer anywhere, and there is much code of it.
  if(QRT_BUILD_FUZZ AND name STREQUAL "base")
    target_compile_options(qrt_objects_${name} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  # RapidJSON's member iterators compare in a way that C++20 calls ambiguous and resolves as meant.
  target_compile_options(qrt_objects_${name} PRIVATE
    $<$<CXX_COMPILER_ID:Clang>:-Wno-ambiguous-reversed-operator> ${ARGN})
  set_target_properties(qrt_objects_${name} PROPERTIES
    CXX_STANDARD 20
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  set(QRT_OBJECT_SETS ${QRT_OBJECT_SETS} ${name} PARENT_SCOPE)
endfunction()

# Stay alone where sources are compiled together, as others put something in their place, and a linker leaves out whole
# objects only: programs that register a few kernels, as `qrt select` writes them, and the test of docs/add-a-kernel.md.
file(GLOB registration_sources CONFIGURE_DEPENDS
  "${PROJECT_SOURCE_DIR}/qrt_core/runtime/engine/register_*.cpp"
  "${PROJECT_SOURCE_DIR}/qrt_core/runtime/engine/kernel_table.cpp")
set_source_files_properties(
  ${registration_sources}
  "${PROJECT_SOURCE_DIR}/qrt_core/utility/register_operators.cpp"
  "${PROJECT_SOURCE_DIR}/qrt_core/kernel/extension/elementary/element_function.cpp"
  "${PROJECT_SOURCE_DIR}/qrt_core/kernel/extension/elementary/element_functions_portable.cpp"
  PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)

qrt_add_objects(base base_sources)
# Each function in a section of its own: a linker then takes what a program calls, and leaves out the kernels that only
# others know. See qrt_core/runtime/engine/kernel_entries.h.
target_compile_options(qrt_objects_base PRIVATE -ffunction-sections -fdata-sections)
qrt_compile_together(qrt_objects_base)
qrt_precompile_standard_library(qrt_objects_base)
if(QRT_WITH_SSE)
  qrt_add_objects(sse sse_sources)
endif()
if(QRT_WITH_SGEMM)
  include(QrtBlas)
  include(QrtBlasCopy)
  if(NOT QRT_BLAS_LIBRARY OR NOT QRT_BLAS_INCLUDE_DIR)
    message(FATAL_ERROR
      "The SGEMM kernels need a BLAS that starts no threads and may be called from several: BLIS in its serial form "
      "(Debian: libblis-serial-dev). Install it, point QRT_BLAS_LIBRARY and QRT_BLAS_INCLUDE_DIR at one, or build "
      "with -DQRT_WITH_SGEMM=OFF.")
  endif()
  qrt_check_blas()
  qrt_add_objects(sgemm sgemm_sources)
  target_include_directories(qrt_objects_sgemm SYSTEM PRIVATE "${QRT_BLAS_INCLUDE_DIR}")
  if(QRT_BLAS_IS_PRIVATE)
    target_compile_definitions(qrt_objects_sgemm PRIVATE cblas_sgemm=qrt_blas_sgemm)
  endif()
endif()
if(QRT_WITH_AVX)
  # Fenced from above as from below, and kept out of link-time optimisation, which would mix the sets.
  # Cores throw nothing; without exception tables their objects need no shared helper functions.
  set(core_fence -mno-avx2 -mno-f16c -fno-exceptions -fno-lto)
  qrt_add_objects(avx avx_sources -mavx -mno-fma ${core_fence})
  qrt_add_objects(fma fma_sources -mavx -mfma ${core_fence})
  qrt_add_objects(avx2 avx2_sources -mavx2 -mno-fma -mno-f16c -fno-exceptions -fno-lto)
  qrt_add_objects(avx512 avx512_sources
    -mavx2 -mfma -mavx512f -mavx512vl -mavx512bw -mavx512dq -fno-exceptions -fno-lto
    # GCC 12 warns of its own headers, where intrinsics begin with a register of any content.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized -Wno-maybe-uninitialized>)
  # The same templates are seen with FMA; with both it is a fifth of what compiling for the sanitizers takes.
  if(QRT_SANITIZE AND TARGET qrt_objects_avx512)
    target_compile_options(qrt_objects_avx512 PRIVATE -fno-sanitize=undefined)
  endif()
endif()

set(library_objects "")
foreach(name IN LISTS QRT_OBJECT_SETS)
  list(APPEND library_objects $<TARGET_OBJECTS:qrt_objects_${name}>)
endforeach()
if(QRT_WITH_SGEMM AND QRT_BLAS_IS_PRIVATE)
  qrt_copy_blas(blas_copy)
  list(APPEND library_objects "${blas_copy}")
endif()

add_library(qrt_core SHARED ${library_objects})
add_library(qrt_core::qrt_core ALIAS qrt_core)
set(export_map "${PROJECT_SOURCE_DIR}/cmake/qrt_core.map")
target_link_options(qrt_core PRIVATE "LINKER:--version-script=${export_map}")
target_link_libraries(qrt_core PRIVATE "$<BUILD_INTERFACE:qrt_hardening>")
if(NOT QRT_SANITIZE AND NOT QRT_BUILD_FUZZ)
  target_link_options(qrt_core PRIVATE LINKER:--no-undefined)
endif()
set_target_properties(qrt_core PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS "${export_map}")

add_library(qrt_core_static STATIC ${library_objects})
add_library(qrt_core::qrt_core_static ALIAS qrt_core_static)
set_target_properties(qrt_core_static PROPERTIES OUTPUT_NAME qrt_core)

foreach(target qrt_core qrt_core_static)
  qrt_set_usage(${target})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${target} PRIVATE "$<BUILD_INTERFACE:qrt_build_flags>")
  if(QRT_WITH_SGEMM)
    if(QRT_BLAS_IS_PRIVATE)
      target_link_libraries(${target} PRIVATE m pthread)
    else()
      target_link_libraries(${target} PRIVATE qrt_core::blas)
    endif()
  endif()
endforeach()
