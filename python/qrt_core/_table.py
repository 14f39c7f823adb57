"""Rows, and tables of them as text and as HTML."""

import html
from typing import Collection, Iterator, List, Sequence, TypeVar, Union, overload

Row = TypeVar("Row")


class Rows(Sequence[Row]):
    """A sequence that a result is."""

    def __init__(self, rows: Sequence[Row]) -> None:
        """Holds `rows`."""
        self._rows = list(rows)

    def __len__(self) -> int:
        return len(self._rows)

    def __iter__(self) -> Iterator[Row]:
        return iter(self._rows)

    @overload
    def __getitem__(self, index: int) -> Row: ...

    @overload
    def __getitem__(self, index: slice) -> List[Row]: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Row, List[Row]]:
        return self._rows[index]


def text_table(columns: Sequence[str], rows: Sequence[Sequence[str]], numbers: Collection[int]) -> str:
    """Lines of columns. Those in `numbers` stand to the right."""
    table = [columns, *rows]
    widths = [max(len(row[column]) for row in table) for column in range(len(columns))]
    return "\n".join(
        "  ".join(
            cell.rjust(width) if column in numbers else cell.ljust(width)
            for column, (cell, width) in enumerate(zip(row, widths))
        ).rstrip()
        for row in table
    )


def html_table(columns: Sequence[str], rows: Sequence[Sequence[str]], caption: str) -> str:
    """The same for a notebook."""

    def line(cells: Sequence[str], tag: str) -> str:
        return "<tr>" + "".join(f"<{tag}>{html.escape(cell)}</{tag}>" for cell in cells) + "</tr>"

    body = "".join(line(row, "td") for row in rows)
    return (
        f"<table><caption>{html.escape(caption)}</caption>"
        f"<thead>{line(columns, 'th')}</thead><tbody>{body}</tbody></table>"
    )


def sizes_text(sizes: Sequence[int]) -> str:
    """Sizes as people write them: "3 x 224 x 224"."""
    return " x ".join(map(str, sizes))
