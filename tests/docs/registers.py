"""docs/registers.md has exactly the registers and values of the register map, with their numbers and directions.

A name in the page may be a sum, REG_MCAST_IP + REG_MCAST_LINE_B: its number is what the header's values add up to.
"""

import re
import sys

from cpp_text import ROOT, macros, without_comments
from markdown import rows

PAGE = "docs/registers.md"
HEADER = "public/wire/RegisterMap.h"

CONSTANT = re.compile(r"constexpr uint32_t (\w+) = (\w+);[ \t]*(?:/\*\*<\s*(RW|R|W)?\b)?")
# How far each column of a table lies from the number that the name stands for.
COLUMNS = {
    "Register": "0",
    "2PS core": "0",
    "4PS core": "REG_CORE_STRIDE",
    "Group 0": "0",
    "Group 1": "REG_NETWORK_GROUP_STRIDE",
    "Group 2": "2 * REG_NETWORK_GROUP_STRIDE",
    "Group 3": "3 * REG_NETWORK_GROUP_STRIDE",
    "Value": "0",
}

problems = []


def problem(text):
    problems.append(text)


def constants():
    """Name to number and direction, which is None for what is no register."""
    text = (ROOT / HEADER).read_text()
    found = {name: (int(number, 0), direction or None) for name, number, direction in CONSTANT.findall(text)}
    names = re.findall(r"\b[A-Z][A-Z0-9]*(?:_[A-Z0-9]+)+\b", without_comments(text)) + macros(text)
    for name in sorted(set(names) - found.keys()):
        problem(f"{HEADER}: {name} is defined in a way that this check cannot read")
    return found


def evaluated(expression, numbers):
    def number(match):
        return str(numbers[match.group()])

    numeric = re.sub(r"\b[A-Z_][A-Z0-9_]*\b", number, expression)
    if not re.fullmatch(r"[0-9a-fA-Fx+* ]+", numeric):
        raise KeyError(expression)
    return eval(numeric)  # only sums and products of numbers


def check_row(row, header, numbers):
    name = row.code("Name")
    try:
        number = evaluated(name or "", numbers)
    except (KeyError, SyntaxError):
        problem(f"{PAGE}:{row.line}: {HEADER} has no {name}")
        return
    for column, distance in COLUMNS.items():
        if column in row.cells:
            expected = number + evaluated(distance, numbers)
            if (row.code(column) or "") != f"0x{expected:X}":
                problem(f"{PAGE}:{row.line}: {name}, {column}: {row.cells[column]} is not `0x{expected:X}`")
    direction = header.get(name, (None, None))[1]
    if direction and row.cells.get("Direction") != direction:
        problem(f"{PAGE}:{row.line}: {name} is {direction}, not {row.cells.get('Direction')!r}")
    for column in ("Meaning", "Who and when"):
        if column in row.cells and not row.cells[column]:
            problem(f"{PAGE}:{row.line}: {name} without {column!r}")


def main():
    header = constants()
    numbers = {name: number for name, (number, _) in header.items()}
    documented = rows(PAGE, "Name")
    for row in documented:
        check_row(row, header, numbers)
    for name in sorted(header.keys() - {row.code("Name") for row in documented}):
        problem(f"{PAGE} has no row {name}")
    for text in problems:
        print(text)
    print(f"{len(header)} names in {HEADER}, {len(documented)} rows in {PAGE}")
    return 1 if problems or not header else 0


if __name__ == "__main__":
    sys.exit(main())
