"""The part of the Python package's build that setuptools leaves open: CMake makes the module.

QRT_BUILD_DIR names a build tree, configured with QRT_WITH_PYTHON and built, from which the module is taken as it is;
without it a tree of its own is made in build/wheel. CMAKE_ARGS has further options of CMake for that one.
"""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import sysconfig

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
PARTS = ("BUILD_TESTS", "BUILD_TOOLS", "BUILD_BENCH", "BUILD_EXAMPLES")


def version():
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"^ *VERSION (\d+\.\d+\.\d+)$", text, re.MULTILINE).group(1)


def cmake(*arguments):
    subprocess.run(["cmake", *map(str, arguments)], check=True)


class CMakeBuild(build_ext):
    def run(self):
        tree = os.environ.get("QRT_BUILD_DIR")
        if tree is None:
            tree = ROOT / "build" / "wheel"
            options = [f"-DQRT_{part}=OFF" for part in PARTS]
            options += ["-DCMAKE_BUILD_TYPE=Release", "-DQRT_WITH_PYTHON=ON", f"-DPython3_EXECUTABLE={sys.executable}"]
            try:
                import pybind11
            except ImportError:
                pass  # CMake finds the system's
            else:
                options.append(f"-Dpybind11_DIR={pybind11.get_cmake_dir()}")
            cmake("-S", ROOT, "-B", tree, *options, *shlex.split(os.environ.get("CMAKE_ARGS", "")))
            cmake("--build", tree, "--target", "qrt_python", "--parallel", self.parallel or os.cpu_count() or 1)
        target = (ROOT / "python") if self.inplace else pathlib.Path(self.build_lib)
        module = target / "qrt_core" / ("_core" + sysconfig.get_config_var("EXT_SUFFIX"))
        module.unlink(missing_ok=True)  # of an earlier build
        cmake("--install", tree, "--component", "qrt_wheel", "--prefix", target.resolve())
        # A tree without the package installs nothing, and one of another interpreter a module that isn't found.
        if not module.exists():
            sys.exit(
                f"{tree} has no {module.name}: configure it with -DQRT_WITH_PYTHON=ON and this interpreter, and build "
                "qrt_python"
            )
        # Wheels hold no links: each library has the one name that is asked for.
        for link in (target / "qrt_core").glob("*.so.*"):
            if link.is_symlink():
                os.replace(link.resolve(), link)


setup(version=version(), ext_modules=[Extension("qrt_core._core", sources=[])], cmdclass={"build_ext": CMakeBuild})
