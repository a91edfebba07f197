"""Reads the tables, headings and links of a page."""

import re
from dataclasses import dataclass, field

from cpp_text import ROOT

_CODE = re.compile(r"`([^`]*)`")


@dataclass
class Row:
    """One row of a table: what stands under each heading, and the heading of its section."""

    section: str
    line: int
    cells: dict = field(default_factory=dict)

    def codes(self, column):
        """The texts in backticks of a cell, to the letter."""
        return _CODE.findall(self.cells.get(column, ""))

    def code(self, column):
        """The first of them; None without one."""
        return next(iter(self.codes(column)), None)


def page_paths():
    """Every page of the tree."""
    return sorted(p.relative_to(ROOT).as_posix() for p in (*ROOT.glob("*.md"), *(ROOT / "docs").glob("*.md")))


def page(path):
    return (ROOT / path).read_text()


def outside_fences(text):
    """The lines of a page with their numbers, those of fenced blocks as empty ones."""
    is_fenced = False
    for number, line in enumerate(text.split("\n"), 1):
        if line.lstrip().startswith("```"):
            is_fenced = not is_fenced
            yield number, ""
        else:
            yield number, "" if is_fenced else line


def _cells(line):
    # A vertical bar inside backticks belongs to its cell.
    parts = re.split(r"\|(?=(?:[^`]*`[^`]*`)*[^`]*$)", line.strip().strip("|"))
    return [part.strip() for part in parts]


def rows(path, first_column):
    """The rows of every table of the page whose first heading is this one."""
    section, heading, found = "", None, []
    for number, line in outside_fences(page(path)):
        if line.startswith("#"):
            section = line.lstrip("#").strip()
        if not line.startswith("|"):
            heading = None
        elif heading is None:
            heading = _cells(line)
        elif heading[0] == first_column and not re.fullmatch(r"[|:\- ]+", line):
            found.append(Row(section, number, dict(zip(heading, _cells(line)))))
    return found
