"""Where measurements are kept."""

import os
from typing import Union

from qrt_core._types import Path


def wisdom_path(wisdom: Union[None, bool, Path]) -> str:
    """The file of a `wisdom` argument: that of the tool for None and True, none ("") for False."""
    if wisdom is False:
        return ""
    if wisdom is None or wisdom is True:
        cache = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
        return os.path.join(cache, "qrt", "wisdom.json")
    return str(os.fspath(wisdom))
