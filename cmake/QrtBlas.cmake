# Finds the BLAS of the SGEMM kernels: QRT_BLAS_LIBRARY and QRT_BLAS_INCLUDE_DIR. By default it is BLIS in its
# serial form (Debian: libblis-serial-dev), which starts no threads and may be called from several.
#
# A static archive becomes a private copy inside of both libraries. Its one entry gets a name of ours and all
# else is local, so that whatever BLAS a process has already loaded, or an application links, neither sees nor
# replaces the other. A shared library is linked by its full path, and what the loader then takes for it is the
# process's affair: a first library with the same symbol wins.
#
# Installed with the package where the BLAS is a shared one, since programs that link libqrt_core.a need it too.

find_library(QRT_BLAS_LIBRARY NAMES libblis.a blis PATH_SUFFIXES blis-serial
  DOC "BLAS with cblas_sgemm: a static archive, or a shared library")
find_path(QRT_BLAS_INCLUDE_DIR cblas.h PATH_SUFFIXES x86_64-linux-gnu/blis-serial blis-serial
  DOC "Folder of cblas.h of that BLAS")
mark_as_advanced(QRT_BLAS_LIBRARY QRT_BLAS_INCLUDE_DIR)

set(QRT_BLAS_IS_PRIVATE FALSE)
if(QRT_BLAS_LIBRARY MATCHES "\\.a$")
  set(QRT_BLAS_IS_PRIVATE TRUE)
elseif(QRT_BLAS_LIBRARY AND NOT TARGET qrt_core::blas)
  add_library(qrt_core::blas UNKNOWN IMPORTED GLOBAL)
  set_target_properties(qrt_core::blas PROPERTIES IMPORTED_LOCATION "${QRT_BLAS_LIBRARY}")
endif()
