# Finds what the Python package needs, and says whether it is built: QRT_WITH_PYTHON, which is on where the system's
# interpreter has headers, NumPy and pybind11 beside it.
#
# An instrumented module needs an interpreter that was started with the sanitizer, so those builds go without unless they
# are asked for it.

if(NOT DEFINED Python3_EXECUTABLE AND EXISTS /usr/bin/python3)
  # pybind11, headers and NumPy come from the distribution, and an interpreter of another kind, first in PATH say, has
  # no part in them.
  set(Python3_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Interpreter that the Python package is for")
endif()
find_package(Python3 QUIET COMPONENTS Interpreter Development.Module NumPy)
set(python_found OFF)
set(python_wanted OFF)
if(Python3_Development.Module_FOUND AND Python3_NumPy_FOUND)
  set(PYTHON_EXECUTABLE "${Python3_EXECUTABLE}")
  find_package(pybind11 QUIET CONFIG)
  if(pybind11_FOUND AND NOT QRT_BUILD_FUZZ)
    set(python_found ON)
    if(NOT QRT_SANITIZE)
      set(python_wanted ON)
    endif()
  endif()
endif()
option(QRT_WITH_PYTHON "Build the Python package (needs python3-dev, python3-numpy and pybind11-dev)" ${python_wanted})
if(QRT_WITH_PYTHON AND NOT python_found)
  message(FATAL_ERROR
    "The Python package needs Debian's python3-dev, python3-numpy and pybind11-dev, and no libFuzzer. Install them, or "
    "build with -DQRT_WITH_PYTHON=OFF.")
endif()
