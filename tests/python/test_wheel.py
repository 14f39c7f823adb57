"""A wheel made by pip, from a build tree, without a network."""

import importlib.util
import os
import re
import shutil
import subprocess
import sys
import zipfile

import models
import pytest
import qrt_core as qrt

TREE = os.environ.get("QRT_BUILD_DIR")
MISSING = [name for name in ("pip", "setuptools", "wheel") if importlib.util.find_spec(name) is None]

pytestmark = [
    pytest.mark.skipif(TREE is None, reason="QRT_BUILD_DIR names no build tree"),
    pytest.mark.skipif(bool(MISSING), reason=f"there is no {', '.join(MISSING)} (Debian: python3-NAME)"),
]

PROGRAM = """
import os
import sys
import numpy as np
import qrt_core as qrt
assert qrt.load(sys.argv[1])[0](np.zeros((1, 28, 28), np.float32)).shape == (10, 1, 1)
paths = {line.rstrip().split(maxsplit=5)[-1] for line in open("/proc/self/maps")}
paths = [path for path in paths if os.path.basename(path).startswith(("libqrt_", "_core."))]
print("\\n".join(sorted(paths)))
"""


def pip(*arguments, folder):
    command = [sys.executable, "-m", "pip", *arguments, "--quiet", "--no-index", "--no-deps"]
    environment = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
    environment["PIP_DISABLE_PIP_VERSION_CHECK"] = "1"
    done = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=100, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def test_a_wheel_holds_the_module_and_its_libraries(tmp_path):
    # pip and setuptools write beside the sources.
    source = tmp_path / "source"
    shutil.copytree(os.path.join(models.ROOT, "python"), source / "python")
    for name in ("pyproject.toml", "setup.py", "CMakeLists.txt", "README.md"):
        shutil.copy(os.path.join(models.ROOT, name), source)
    pip("wheel", "--no-build-isolation", "--wheel-dir", tmp_path / "wheels", ".", folder=source)
    (wheel,) = (tmp_path / "wheels").iterdir()
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    assert wheel.name == f"qrt_core-{qrt.__version__}-{python}-{python}-linux_x86_64.whl"
    with zipfile.ZipFile(wheel) as archive:
        names = archive.namelist()
        (metadata,) = (name for name in names if name.endswith("METADATA"))
        assert re.search(r"^Requires-Dist: numpy ?\(?>=1\.21\)?$", archive.read(metadata).decode(), re.MULTILINE)
    files = {name.split("/", 1)[1] for name in names if name.startswith("qrt_core/")}
    package = {name for name in os.listdir(os.path.dirname(qrt.__file__)) if name != "__pycache__"}
    assert files == package | {"libqrt_core.so.1", "libqrt_toolkit.so.1"}
    pip("install", "--target", tmp_path / "installed", wheel, folder=tmp_path)
    done = subprocess.run(
        [sys.executable, "-B", "-c", PROGRAM, models.DIGITS],
        env={**os.environ, "PYTHONPATH": str(tmp_path / "installed")},
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    loaded = done.stdout.splitlines()
    assert len(loaded) == 3 and all(path.startswith(str(tmp_path / "installed" / "qrt_core")) for path in loaded), loaded


def test_a_tree_without_the_module_makes_no_wheel(tmp_path):
    tree = tmp_path / "tree"
    tree.mkdir()
    (tree / "cmake_install.cmake").write_text("")  # installs nothing, as a tree without the package
    done = subprocess.run(
        [sys.executable, "-B", "setup.py", "-q", "build_ext", "--build-lib", tmp_path / "lib"],
        cwd=models.ROOT,
        env={**os.environ, "QRT_BUILD_DIR": str(tree)},
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode != 0 and f"{tree} has no _core." in done.stderr and "build qrt_python" in done.stderr
