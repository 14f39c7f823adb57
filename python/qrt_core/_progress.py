"""Lines that say how far long work is."""

import contextlib
import sys
from typing import Any, Callable, Iterator, Optional, Union


@contextlib.contextmanager
def shown(progress: Union[bool, Callable[..., object]], line: str) -> Iterator[Optional[Callable[..., object]]]:
    """What long work calls: nothing for False, the caller's own function, or one that shows `line` for True."""
    if not isinstance(progress, bool):
        yield progress
    elif not progress:
        yield None
    else:

        def show(*facts: Any) -> None:
            print("\r" + line.format(*facts), end="", file=sys.stderr, flush=True)

        try:
            yield show
        finally:
            print(file=sys.stderr)
