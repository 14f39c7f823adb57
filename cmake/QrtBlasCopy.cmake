# What the build of the library does with the BLAS that QrtBlas found: it proves that threads may share it,
# and makes the private copy of an archive.

# Wrong sums from two threads at once are no fault that anybody would see: so they are looked for before
# anything is built on this BLAS. A program for another kind of machine can't be run here.
function(qrt_check_blas)
  if(QRT_BLAS_CHECKED STREQUAL QRT_BLAS_LIBRARY)
    return()
  endif()
  if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    message(STATUS "Not tried from several threads, since this is a cross build: ${QRT_BLAS_LIBRARY}")
    return()
  endif()
  find_package(Threads REQUIRED)
  try_run(ran compiled "${PROJECT_BINARY_DIR}/blas_check"
    SOURCES "${PROJECT_SOURCE_DIR}/cmake/checks/blas_on_threads.cpp"
    CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${QRT_BLAS_INCLUDE_DIR}"
    LINK_LIBRARIES "${QRT_BLAS_LIBRARY}" Threads::Threads m
    CXX_STANDARD 17
    COMPILE_OUTPUT_VARIABLE compiler_says
    RUN_OUTPUT_VARIABLE says)
  if(NOT compiled)
    message(FATAL_ERROR "QRT_BLAS_LIBRARY (${QRT_BLAS_LIBRARY}) can't be linked for cblas_sgemm:\n${compiler_says}")
  endif()
  if(NOT ran EQUAL 0)
    message(FATAL_ERROR
      "QRT_BLAS_LIBRARY (${QRT_BLAS_LIBRARY}) gives wrong products when threads with matrices of their own call "
      "it at once, so networks on several threads would compute nonsense. Debian's libblis-serial-dev is safe; "
      "-DQRT_WITH_SGEMM=OFF builds without a BLAS.\n${says}")
  endif()
  message(STATUS "Right products from several threads: ${QRT_BLAS_LIBRARY}")
  set(QRT_BLAS_CHECKED "${QRT_BLAS_LIBRARY}" CACHE INTERNAL "The BLAS that was tried from several threads")
endfunction()

# qrt_copy_blas(<variable>): the object file of the private copy, whose entry is qrt_blas_sgemm
function(qrt_copy_blas variable)
  set(folder "${PROJECT_BINARY_DIR}/blas")
  file(MAKE_DIRECTORY "${folder}")
  set(copy "${folder}/private_blas.o")
  add_custom_command(OUTPUT "${copy}"
    COMMAND "${CMAKE_LINKER}" -m elf_x86_64 -r --undefined=cblas_sgemm -o "${copy}.all" "${QRT_BLAS_LIBRARY}"
    # Two steps: which of a symbol's names counts in one step differs between GNU's tool and LLVM's.
    COMMAND "${CMAKE_OBJCOPY}" --redefine-sym cblas_sgemm=qrt_blas_sgemm "${copy}.all" "${copy}.renamed"
    COMMAND "${CMAKE_OBJCOPY}" --keep-global-symbol=qrt_blas_sgemm "${copy}.renamed" "${copy}"
    COMMAND "${CMAKE_COMMAND}" -E rm "${copy}.all" "${copy}.renamed"
    DEPENDS "${QRT_BLAS_LIBRARY}"
    COMMENT "Making a private copy of the BLAS"
    VERBATIM)
  set_source_files_properties("${copy}" PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
  set(${variable} "${copy}" PARENT_SCOPE)
endfunction()
