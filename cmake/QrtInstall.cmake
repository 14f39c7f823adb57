# Headers, both libraries, the tool with its manual page, a CMake package and a pkg-config file.
# Everything is found relative to the installed files, so that the tree may be moved.
# Components: qrt_core_runtime, qrt_core_development, qrt_core_headers, qrt_toolkit_runtime,
# qrt_toolkit_development, qrt_toolkit_headers, qrt_tool.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/qrt_core")

foreach(target qrt_core qrt_core_static)
  target_include_directories(${target} PUBLIC "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
endforeach()
# The folder of a shared BLAS stays in the run path; no other library stands outside of the usual ones.
set_target_properties(qrt_core PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
install(TARGETS qrt_core qrt_core_static EXPORT qrt_core_targets
  LIBRARY COMPONENT qrt_core_runtime NAMELINK_COMPONENT qrt_core_development
  ARCHIVE COMPONENT qrt_core_development)
# The toolkit has targets of its own, for find_package(qrt_core COMPONENTS toolkit): its static form
# needs libonnx and protobuf, which a user of the runtime need not have.
foreach(target qrt_toolkit qrt_toolkit_static)
  target_include_directories(${target} PUBLIC "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
endforeach()
set_target_properties(qrt_toolkit PROPERTIES INSTALL_RPATH "$ORIGIN" INSTALL_RPATH_USE_LINK_PATH ON)
install(TARGETS qrt_toolkit qrt_toolkit_static EXPORT qrt_toolkit_targets
  LIBRARY COMPONENT qrt_toolkit_runtime NAMELINK_COMPONENT qrt_toolkit_development
  ARCHIVE COMPONENT qrt_toolkit_development)
install(EXPORT qrt_toolkit_targets
  FILE qrt_toolkitTargets.cmake NAMESPACE qrt_core:: DESTINATION "${package_dir}"
  COMPONENT qrt_toolkit_development)
# Its public headers are those that export something; the others serve its own sources. A public one that includes one
# of these fails the test build_checks.headers.
file(GLOB_RECURSE toolkit_headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
  "${PROJECT_SOURCE_DIR}/qrt_toolkit/*.h")
foreach(header IN LISTS toolkit_headers)
  file(STRINGS "${PROJECT_SOURCE_DIR}/${header}" exports REGEX "QRT_API" LIMIT_COUNT 1)
  if(exports)
    get_filename_component(folder "${header}" DIRECTORY)
    install(FILES "${PROJECT_SOURCE_DIR}/${header}"
      DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${folder}" COMPONENT qrt_toolkit_headers)
  endif()
endforeach()
if(TARGET qrt)
  set_target_properties(qrt PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
  install(TARGETS qrt COMPONENT qrt_tool)
  # Where `qrt read` looks for it, seen from the tool.
  install(FILES "${PROJECT_SOURCE_DIR}/models/lines/lines.qrtmodel" DESTINATION "${CMAKE_INSTALL_DATADIR}/qrt"
    COMPONENT qrt_tool)
endif()
if(TARGET qrt_man_page)
  install(FILES "${QRT_MAN_PAGE}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT qrt_tool)
  install(FILES "${QRT_BASH_COMPLETION}" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    COMPONENT qrt_tool)
endif()

# These serve the library's own sources only. A public header that includes one of them, or a header of a
# dependency, fails the test build_checks.headers.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/qrt_core" "${QRT_GENERATED_INCLUDE_DIR}/qrt_core"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  COMPONENT qrt_core_headers
  FILES_MATCHING PATTERN "*.h"
  PATTERN "*_internal.h" EXCLUDE
  PATTERN "json_document.h" EXCLUDE)

install(EXPORT qrt_core_targets
  FILE qrt_coreTargets.cmake NAMESPACE qrt_core:: DESTINATION "${package_dir}"
  COMPONENT qrt_core_development)
set(package_finds_blas FALSE)
if(QRT_WITH_SGEMM AND NOT QRT_BLAS_IS_PRIVATE)
  set(package_finds_blas TRUE)
  get_filename_component(blas_dir "${QRT_BLAS_LIBRARY}" DIRECTORY)
  get_filename_component(blas_name "${QRT_BLAS_LIBRARY}" NAME_WE)
  string(REGEX REPLACE "^lib" "" blas_name "${blas_name}")
  install(FILES "${PROJECT_SOURCE_DIR}/cmake/QrtBlas.cmake" DESTINATION "${package_dir}"
    COMPONENT qrt_core_development)
endif()
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/qrt_coreConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/qrt_coreConfig.cmake"
  INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/qrt_coreConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/qrt_coreConfig.cmake"
  "${PROJECT_BINARY_DIR}/qrt_coreConfigVersion.cmake"
  DESTINATION "${package_dir}" COMPONENT qrt_core_development)

set(pc_dir "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH pc_prefix "${pc_dir}" "${CMAKE_INSTALL_PREFIX}")
file(RELATIVE_PATH pc_libdir "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH pc_includedir "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
set(pc_extra_cflags "")
if(QRT_HALF_INCLUDE_DIR)
  set(pc_extra_cflags " -I${QRT_HALF_INCLUDE_DIR} -DHALF_ROUND_STYLE=-1")
endif()
set(pc_private_libs "")
if(package_finds_blas)
  set(pc_private_libs "-L${blas_dir} -Wl,-rpath,${blas_dir} -l${blas_name} ")
endif()
configure_file(
  "${PROJECT_SOURCE_DIR}/cmake/qrt_core.pc.in" "${PROJECT_BINARY_DIR}/qrt_core.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/qrt_core.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
  COMPONENT qrt_core_development)
