"""Writing files whole or not at all."""

import errno
import os
import tempfile
from typing import Tuple, Union


def _new_file(path: str) -> Tuple[int, str]:
    """An empty file beside `path`: its descriptor and its name."""
    if os.path.isdir(path):
        raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), path)
    folder = os.path.dirname(os.path.abspath(path))
    try:
        return tempfile.mkstemp(prefix=os.path.basename(path) + ".", dir=folder)
    except OSError as error:
        # It names a file that nobody asked for.
        raise type(error)(error.errno, error.strerror, path) from None


def expect_replaceable(path: Union[str, "os.PathLike[str]"]) -> str:
    """Fails as replace_file() would, before long work is done for a file. Leaves nothing behind, and returns the path."""
    path = os.fspath(path)
    descriptor, name = _new_file(path)
    os.close(descriptor)
    os.unlink(name)
    return path


def replace_file(path: str, data: bytes) -> None:
    """Writes `data` to a new file beside `path`, and puts it in its place."""
    descriptor, name = _new_file(path)
    try:
        with os.fdopen(descriptor, "wb") as file:
            file.write(data)
        # As open() would have made it.
        mask = os.umask(0)
        os.umask(mask)
        os.chmod(name, os.stat(path).st_mode & 0o777 if os.path.exists(path) else 0o666 & ~mask)
        os.replace(name, path)
    except BaseException:
        os.unlink(name)
        raise
