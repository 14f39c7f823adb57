# Debian packages by CPack: libqrt-core1, libqrt-core-dev, libqrt-toolkit1, libqrt-toolkit-dev, qrt and
# python3-qrt-core. `./dev package` builds and checks them.
#
# The preset `package` sets the prefix to /usr, so that libraries go into Debian's folder for the architecture.

if(NOT QRT_INSTALL OR NOT TARGET qrt_man_page)
  message(FATAL_ERROR "QRT_DEBIAN_PACKAGES needs QRT_INSTALL, QRT_BUILD_TOOLS and, for the manual page, Python 3.")
endif()
if(QRT_WITH_SGEMM AND NOT QRT_BLAS_IS_PRIVATE)
  message(FATAL_ERROR "QRT_DEBIAN_PACKAGES needs a BLAS in a static archive: the packages depend on none.")
endif()
find_program(GZIP_PROGRAM gzip REQUIRED)
mark_as_advanced(GZIP_PROGRAM)

set(QRT_PACKAGE_MAINTAINER "qrt_core developers <qrt-core@lists.invalid>"
  CACHE STRING "Maintainer that the packages name")
set(QRT_PACKAGE_RELEASE 1 CACHE STRING "Number behind the version of the packages")
mark_as_advanced(QRT_PACKAGE_MAINTAINER QRT_PACKAGE_RELEASE)
# SOURCE_DATE_EPOCH, where it is set, makes this and what CPack writes the same in every build.
string(TIMESTAMP QRT_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)

set(QRT_RUNTIME_PACKAGE libqrt-core${PROJECT_VERSION_MAJOR})
set(package_of_qrt_core_runtime ${QRT_RUNTIME_PACKAGE})
set(package_of_qrt_core_development libqrt-core-dev)
set(package_of_qrt_toolkit_runtime libqrt-toolkit${PROJECT_VERSION_MAJOR})
set(package_of_qrt_toolkit_development libqrt-toolkit-dev)
set(package_of_qrt_tool qrt)
set(package_of_qrt_python python3-qrt-core)
set(packaged_components
  qrt_core_runtime qrt_core_development qrt_toolkit_runtime qrt_toolkit_development qrt_tool)
if(QRT_WITH_PYTHON)
  list(APPEND packaged_components qrt_python)
endif()

# What every package holds under share/doc. These rules are for CPack alone, not for `cmake --install`.
function(qrt_compress input output)
  execute_process(COMMAND "${GZIP_PROGRAM}" -9 --no-name --stdout "${input}"
    OUTPUT_FILE "${output}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()
set(package_files "${PROJECT_BINARY_DIR}/packaging")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
configure_file("${PROJECT_SOURCE_DIR}/packaging/changelog.in" "${package_files}/changelog.Debian" @ONLY)
qrt_compress("${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${package_files}/changelog.gz")
qrt_compress("${package_files}/changelog.Debian" "${package_files}/changelog.Debian.gz")
foreach(component IN LISTS packaged_components)
  set(package ${package_of_${component}})
  install(FILES
    "${PROJECT_SOURCE_DIR}/packaging/copyright"
    "${package_files}/changelog.gz"
    "${package_files}/changelog.Debian.gz"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
configure_file("${PROJECT_SOURCE_DIR}/packaging/libqrt-core.overrides.in"
  "${package_files}/${QRT_RUNTIME_PACKAGE}.overrides" @ONLY)
install(FILES "${package_files}/${QRT_RUNTIME_PACKAGE}.overrides" RENAME ${QRT_RUNTIME_PACKAGE}
  DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT qrt_core_runtime EXCLUDE_FROM_ALL)
configure_file("${PROJECT_SOURCE_DIR}/packaging/shlibs.in" "${package_files}/shlibs" @ONLY)
file(WRITE "${package_files}/toolkit/shlibs"
  "libqrt_toolkit ${PROJECT_VERSION_MAJOR} ${package_of_qrt_toolkit_runtime} (>= ${PROJECT_VERSION})\n")
file(WRITE "${package_files}/${package_of_qrt_toolkit_runtime}.overrides"
  "# CPack writes these scripts beside the trigger that would do.\n"
  "${package_of_qrt_toolkit_runtime}: maintscript-calls-ldconfig *\n")
install(FILES "${package_files}/${package_of_qrt_toolkit_runtime}.overrides"
  RENAME ${package_of_qrt_toolkit_runtime}
  DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT qrt_toolkit_runtime EXCLUDE_FROM_ALL)
# Side by side as in the source tree, so that links from one to the other hold.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" "${PROJECT_SOURCE_DIR}/examples"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package_of_qrt_core_development}"
  COMPONENT qrt_core_development EXCLUDE_FROM_ALL
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.json" PATTERN "*.cpp"
  PATTERN "generators" EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${packaged_components} qrt_core_headers qrt_toolkit_headers)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${QRT_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${QRT_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SOURCE qrt-core)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Empty, or it would be the first line of every description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

set(CPACK_DEBIAN_QRT_CORE_RUNTIME_PACKAGE_NAME ${package_of_qrt_core_runtime})
set(CPACK_DEBIAN_QRT_CORE_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_QRT_CORE_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${package_files}/shlibs" "${PROJECT_SOURCE_DIR}/packaging/triggers")
set(CPACK_DEBIAN_QRT_CORE_RUNTIME_DESCRIPTION "neural-network inference on x86-64 processors
A library that runs trained models on images and sequences, on one core, on
the caller's thread. A model file says for every layer which kernel runs it:
portable ones, for SSE, and for AVX with and without fused multiply-add. After
the first pass a pass takes no memory from the system.
.
This package holds the shared library.")

set(CPACK_DEBIAN_QRT_CORE_DEVELOPMENT_PACKAGE_NAME ${package_of_qrt_core_development})
set(CPACK_DEBIAN_QRT_CORE_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_QRT_CORE_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
string(CONCAT CPACK_DEBIAN_QRT_CORE_DEVELOPMENT_PACKAGE_DEPENDS
  "${package_of_qrt_core_runtime} (= ${PROJECT_VERSION}-${QRT_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_QRT_CORE_DEVELOPMENT_DESCRIPTION "neural-network inference on x86-64 processors (headers)
A library that runs trained models on images and sequences, on one core, on
the caller's thread.
.
This package holds the headers, the static library, the files for CMake and
pkg-config, the documents and the examples.")

# The toolkit needs the very runtime that it was built with, which is no package yet when dependencies are looked up.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_QRT_TOOLKIT_RUNTIME_PACKAGE_NAME ${package_of_qrt_toolkit_runtime})
set(CPACK_DEBIAN_QRT_TOOLKIT_RUNTIME_PACKAGE_SECTION libs)
string(CONCAT CPACK_DEBIAN_QRT_TOOLKIT_RUNTIME_PACKAGE_DEPENDS
  "${package_of_qrt_core_runtime} (= ${PROJECT_VERSION}-${QRT_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_QRT_TOOLKIT_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${package_files}/toolkit/shlibs" "${PROJECT_SOURCE_DIR}/packaging/triggers")
set(CPACK_DEBIAN_QRT_TOOLKIT_RUNTIME_DESCRIPTION "imports neural networks for qrt_core
A library that makes models for qrt_core of networks in ONNX files, and
compares each layer with what the file defines.
.
This package holds the shared library.")

set(CPACK_DEBIAN_QRT_TOOLKIT_DEVELOPMENT_PACKAGE_NAME ${package_of_qrt_toolkit_development})
set(CPACK_DEBIAN_QRT_TOOLKIT_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_QRT_TOOLKIT_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
string(CONCAT CPACK_DEBIAN_QRT_TOOLKIT_DEVELOPMENT_PACKAGE_DEPENDS
  "${package_of_qrt_toolkit_runtime} (= ${PROJECT_VERSION}-${QRT_PACKAGE_RELEASE}), "
  "${package_of_qrt_core_development} (= ${PROJECT_VERSION}-${QRT_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_QRT_TOOLKIT_DEVELOPMENT_DESCRIPTION "imports neural networks for qrt_core (headers)
A library that makes models for qrt_core of networks in ONNX files, and
compares each layer with what the file defines.
.
This package holds the headers, the static library, which needs libonnx-dev
and libprotobuf-dev, and the files for CMake.")

set(CPACK_DEBIAN_QRT_TOOL_PACKAGE_NAME ${package_of_qrt_tool})
set(CPACK_DEBIAN_QRT_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_QRT_TOOL_DESCRIPTION "shows, runs and converts neural networks in model files
The command-line tool of qrt_core: it lists networks and layers, runs a
network on pictures and arrays, asks the layers whether they fit together,
and converts models between JSON and the binary form.")

set(CPACK_DEBIAN_QRT_PYTHON_PACKAGE_NAME ${package_of_qrt_python})
set(CPACK_DEBIAN_QRT_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_QRT_PYTHON_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/python3/prerm")
# The library, which isn't installed where packages are built, is named here and looked for in the build folder.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
math(EXPR next_python "${Python3_VERSION_MINOR} + 1")
string(JOIN ", " CPACK_DEBIAN_QRT_PYTHON_PACKAGE_DEPENDS
  "${package_of_qrt_core_runtime} (= ${PROJECT_VERSION}-${QRT_PACKAGE_RELEASE})"
  "${package_of_qrt_toolkit_runtime} (= ${PROJECT_VERSION}-${QRT_PACKAGE_RELEASE})"
  "python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR})"
  "python3 (<< ${Python3_VERSION_MAJOR}.${next_python})"
  "python3-numpy")
set(CPACK_DEBIAN_QRT_PYTHON_DESCRIPTION "neural-network inference on x86-64 processors (Python)
A package for Python that loads, checks and runs trained models on NumPy
arrays, on one core, on the caller's thread, imports ONNX files, and turns
pictures into inputs.")

include(CPack)
# The groups are named as the components that the packages are named for.
foreach(group IN LISTS packaged_components)
  cpack_add_component_group(${group})
  cpack_add_component(${group} GROUP ${group})
endforeach()
cpack_add_component(qrt_core_headers GROUP qrt_core_development)
cpack_add_component(qrt_toolkit_headers GROUP qrt_toolkit_development)
