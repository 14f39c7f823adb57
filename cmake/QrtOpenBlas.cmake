# Finds OpenBLAS in its serial form, as the imported target OpenBLAS::serial. Installed with the package,
# since programs that link libqrt_core.a need it too.
#
# Debian keeps each form of OpenBLAS in a folder of its own and lets an alternative decide which one a bare
# -lopenblas or libopenblas.so.0 is. The library is therefore linked by its full path, and CMake adds that
# folder to the run path of what is linked. QRT_OPENBLAS_LIBRARY and QRT_OPENBLAS_INCLUDE_DIR choose another.

find_library(QRT_OPENBLAS_LIBRARY openblas PATH_SUFFIXES openblas-serial DOC "OpenBLAS, serial form")
find_path(QRT_OPENBLAS_INCLUDE_DIR cblas.h
  PATH_SUFFIXES x86_64-linux-gnu/openblas-serial openblas-serial
  DOC "Folder of cblas.h of the serial OpenBLAS")
mark_as_advanced(QRT_OPENBLAS_LIBRARY QRT_OPENBLAS_INCLUDE_DIR)

if(QRT_OPENBLAS_LIBRARY AND NOT TARGET OpenBLAS::serial)
  add_library(OpenBLAS::serial UNKNOWN IMPORTED GLOBAL)
  set_target_properties(OpenBLAS::serial PROPERTIES IMPORTED_LOCATION "${QRT_OPENBLAS_LIBRARY}")
  if(QRT_OPENBLAS_INCLUDE_DIR)
    set_target_properties(OpenBLAS::serial PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES "${QRT_OPENBLAS_INCLUDE_DIR}")
  endif()
endif()
