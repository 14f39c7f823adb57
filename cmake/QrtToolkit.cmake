# libqrt_toolkit.a and libqrt_toolkit.so: what prepares models, beside the runtime and above it.
#
# With QRT_WITH_ONNX, which is on where libonnx and protobuf are found, ONNX files are imported; without it
# onnx/absent.cpp stands in the place of all that an import goes through.

find_package(Protobuf QUIET)
find_package(ONNX CONFIG QUIET)
if(Protobuf_FOUND AND ONNX_FOUND)
  set(onnx_found ON)
else()
  set(onnx_found OFF)
endif()
option(QRT_WITH_ONNX "Read ONNX files (needs libonnx-dev and libprotobuf-dev)" ${onnx_found})
if(QRT_WITH_ONNX AND NOT onnx_found)
  message(FATAL_ERROR
    "Reading ONNX files needs Debian's libonnx-dev and libprotobuf-dev. Install them, or build with "
    "-DQRT_WITH_ONNX=OFF.")
endif()

file(GLOB_RECURSE toolkit_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/qrt_toolkit/*.cpp")
if(QRT_WITH_ONNX)
  list(FILTER toolkit_sources EXCLUDE REGEX "/onnx/absent\\.cpp$")
else()
  set(import_folders "evaluate|graph|lower|operators|shapes|simplify|write")
  set(import_sources "free_sizes|import_onnx|onnx/(canonical|check|file|functions|graph|tensor)")
  string(APPEND import_sources "|verify/(agreement|binary_form|network_run|verify)")
  list(FILTER toolkit_sources EXCLUDE REGEX "/qrt_toolkit/((${import_folders})/|(${import_sources})\\.cpp$)")
endif()

add_library(qrt_objects_toolkit OBJECT ${toolkit_sources})
qrt_set_usage(qrt_objects_toolkit)
target_link_libraries(qrt_objects_toolkit PRIVATE qrt_build_flags qrt_hardening)
target_include_directories(qrt_objects_toolkit SYSTEM PRIVATE "${RAPIDJSON_INCLUDE_DIR}")
target_compile_options(qrt_objects_toolkit PRIVATE
  $<$<CXX_COMPILER_ID:Clang>:-Wno-ambiguous-reversed-operator>)
set_target_properties(qrt_objects_toolkit PROPERTIES
  CXX_STANDARD 20
  CXX_STANDARD_REQUIRED ON
  CXX_EXTENSIONS OFF
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
if(QRT_SANITIZE)
  qrt_compile_quickly(qrt_objects_toolkit)
endif()
qrt_compile_together(qrt_objects_toolkit)
qrt_precompile_standard_library(qrt_objects_toolkit)
if(QRT_BUILD_FUZZ)
  target_compile_options(qrt_objects_toolkit PRIVATE -fsanitize=fuzzer-no-link)
endif()

# The probe of the machine runs what the processor has, so its instruction sets are fenced as the library's are.
function(qrt_compile_probe set)
  set_source_files_properties("${PROJECT_SOURCE_DIR}/qrt_toolkit/explain/probe_${set}.cpp" PROPERTIES
    SKIP_PRECOMPILE_HEADERS ON
    COMPILE_OPTIONS "${ARGN};-fno-exceptions;-fno-lto")
endfunction()
qrt_compile_probe(avx -mavx -mno-avx2 -mno-fma -mno-f16c)
qrt_compile_probe(fma -mavx -mfma -mno-avx2 -mno-f16c)
qrt_compile_probe(avx512 -mavx2 -mfma -mavx512f -mavx512vl -mavx512bw -mavx512dq)

add_library(qrt_toolkit SHARED $<TARGET_OBJECTS:qrt_objects_toolkit>)
add_library(qrt_core::qrt_toolkit ALIAS qrt_toolkit)
target_link_options(qrt_toolkit PRIVATE "LINKER:--version-script=${export_map}")
if(NOT QRT_SANITIZE AND NOT QRT_BUILD_FUZZ)
  target_link_options(qrt_toolkit PRIVATE LINKER:--no-undefined)
endif()
set_target_properties(qrt_toolkit PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS "${export_map}")
target_link_libraries(qrt_toolkit PUBLIC qrt_core PRIVATE "$<BUILD_INTERFACE:qrt_hardening>")

add_library(qrt_toolkit_static STATIC $<TARGET_OBJECTS:qrt_objects_toolkit>)
add_library(qrt_core::qrt_toolkit_static ALIAS qrt_toolkit_static)
set_target_properties(qrt_toolkit_static PROPERTIES OUTPUT_NAME qrt_toolkit)
target_link_libraries(qrt_toolkit_static PUBLIC qrt_core_static)

foreach(target qrt_toolkit qrt_toolkit_static)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${target} PRIVATE "$<BUILD_INTERFACE:qrt_build_flags>")
  if(QRT_WITH_ONNX)
    target_link_libraries(${target} PRIVATE onnx onnx_proto protobuf::libprotobuf)
  endif()
endforeach()
if(QRT_WITH_ONNX)
  target_link_libraries(qrt_objects_toolkit PRIVATE onnx onnx_proto protobuf::libprotobuf)
endif()
