"""The pages fit the tree: links lead somewhere, files that are named exist, the README knows every page, and the
list of rooms in docs/architecture.md is what is there."""

import re
import sys

from cpp_text import ROOT
from markdown import outside_fences, page, page_paths

# Folders whose folders are rooms.
BUILDINGS = ("src", "public", "sim", "apps")
LINK = re.compile(r"\]\(([^)\s]+)\)")
NAMED_FILE = re.compile(r"`([\w./-]+\.(?:cpp|h|py|sh|toml|ini|md|cmake|map))`")
IGNORED = {"build", ".git", ".cache", "__pycache__"}

problems = []


def problem(text):
    problems.append(text)


def files():
    found = []
    for folder in ROOT.iterdir():
        if folder.name not in IGNORED:
            found += [p for p in (folder.rglob("*") if folder.is_dir() else [folder]) if p.is_file()]
    return {p.relative_to(ROOT).as_posix() for p in found}


def anchors(path):
    headings = [line for _, line in outside_fences(page(path)) if line.startswith("#")]
    texts = [re.sub(r"[`*]|\[|\]\([^)]*\)", "", heading.lstrip("#").strip()) for heading in headings]
    return {re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-") for text in texts}


def check_links(path):
    for number, line in outside_fences(page(path)):
        for link in LINK.findall(line):
            if re.match(r"[a-z]+:", link):
                continue
            target, _, anchor = link.partition("#")
            whole = (ROOT / path).parent / target if target else ROOT / path
            if not whole.exists():
                problem(f"{path}:{number}: {target} is not there")
            elif anchor and anchor not in anchors(whole.resolve().relative_to(ROOT).as_posix()):
                problem(f"{path}:{number}: {target or path} has no heading #{anchor}")


def check_named_files(path, existing):
    for number, line in outside_fences(page(path)):
        for name in (each.removeprefix("./") for each in NAMED_FILE.findall(line)):
            is_there = any(each == name or each.endswith("/" + name) for each in existing)
            # A name alone may be one that the reader is to give: kova.ini, market.toml.
            if not is_there and ("/" in name or name.endswith((".cpp", ".h", ".py", ".sh"))):
                problem(f"{path}:{number}: there is no {name}")


def check_rooms():
    """Every folder in the list of rooms is there, and every room of the buildings in the list."""
    block = re.search(r"## Rooms\n\n```\n(.*?)```", page("docs/architecture.md"), re.DOTALL).group(1)
    listed, building = set(), ""
    for line in block.split("\n"):
        names = re.match(r"( *)((?:[\w.]+/[\w/]* +)+)", line)
        if names:
            building = building if names.group(1) else names.group(2).split()[0].split("/")[0]
            for name in names.group(2).split():
                listed.add((f"{building}/{name}" if names.group(1) else name).rstrip("/"))
    for room in sorted(listed):
        if not (ROOT / room).is_dir():
            problem(f"docs/architecture.md: there is no room {room}")
    for building in BUILDINGS:
        for room in sorted(p for p in (ROOT / building).iterdir() if p.is_dir() and p.name not in IGNORED):
            if room.relative_to(ROOT).as_posix() not in listed:
                problem(f"docs/architecture.md does not list {room.relative_to(ROOT).as_posix()}")


def main():
    existing, all_pages = files(), page_paths()
    for path in all_pages:
        check_links(path)
        check_named_files(path, existing)
    for path in all_pages:
        if path != "README.md" and f"]({path})" not in page("README.md"):
            problem(f"README.md does not link {path}")
    check_rooms()
    for text in problems:
        print(text)
    print(f"{len(all_pages)} pages")
    return 1 if problems or not all_pages else 0


if __name__ == "__main__":
    sys.exit(main())
