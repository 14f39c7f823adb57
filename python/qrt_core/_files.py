"""Writing files whole or not at all."""

import os
import tempfile


def replace_file(path: str, data: bytes) -> None:
    """Writes `data` to a new file beside `path`, and puts it in its place."""
    folder = os.path.dirname(os.path.abspath(path))
    try:
        descriptor, name = tempfile.mkstemp(prefix=os.path.basename(path) + ".", dir=folder)
    except OSError as error:
        # It names a file that nobody asked for.
        raise type(error)(error.errno, error.strerror, path) from None
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
