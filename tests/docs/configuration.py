"""docs/configuration.md and config/kova.ini have exactly the keys that the library reads, with its defaults."""

import re
import sys

from cpp_text import ROOT, calls, literal, literals, sources
from markdown import rows

PAGE = "docs/configuration.md"
EXAMPLE = "config/kova.ini"

# Names in the reader's code that are no keys: sections, values, the name of the operation.
OTHER_NAMES = {"config", "channel", "enabled", "disabled", "recv", "norecv", "all", "_ReadConfig"}
# Sections by what stands for them in the code.
SECTIONS = {"SECTION": "config", "section.data()": "channel"}
TABLE_ENTRY = re.compile(r'\{\s*"(\w+)"\s*,\s*([^{},]+?)\s*,\s*&\w+::\w+\s*\}')

problems = []


def problem(text):
    problems.append(text)


def value(text):
    """A default as it is compared: numbers by their value, texts by their letters."""
    text = (text or "").strip()
    try:
        return int(text, 0)
    except ValueError:
        return text


def value_of_code(argument):
    text = literal(argument)
    return value(argument if text is None else text)


def keys_of_calls(source):
    """Calls that name their key; those that are handed one are in a loop over a table or in a helper."""
    for call in calls(source.code, r"Read(?:Enabled|Flag|Text|String|U?Int\d+|Common)"):
        texts = [index for index, each in enumerate(call.arguments) if literal(each) is not None]
        if not texts:
            continue
        key = texts[0]
        default = call.arguments[key + 1] if len(call.arguments) > key + 1 else "0"
        section = SECTIONS.get(call.arguments[key - 1], "config")
        yield (section, literal(call.arguments[key])), value_of_code(default)


def read_keys():
    """Section and key with the default, of every file that asks a configuration file for something."""
    keys = {}
    for source in sources("src", "public"):
        if "CIniReader" not in source.code or source.name.startswith("IniReader."):
            continue
        keys.update(keys_of_calls(source))
        for key, default in TABLE_ENTRY.findall(source.code):
            keys[("config", key)] = value_of_code(default)
        names = {text for text in literals(source.code) if re.fullmatch(r"[A-Za-z_]\w*", text)}
        for name in names - OTHER_NAMES - {key for _, key in keys}:
            problem(f"{source.path}: {name!r} is neither a key that this check sees read nor known as no key")
    return keys


def documented_keys():
    keys = {}
    for row in rows(PAGE, "Key"):
        section = "channel" if "channel" in row.section else "config"
        default = row.code("Default")
        if default is None and row.cells["Default"] != "empty":
            problem(f"{PAGE}:{row.line}: wants a default in backticks, or the word empty")
        keys[(section, row.code("Key"))] = value(default)
        for column in ("Range", "Example", "Meaning", "A bad value"):
            if not row.cells.get(column):
                problem(f"{PAGE}:{row.line}: a key without its column {column!r}")
    return keys


def example_keys():
    keys, section = {}, None
    for line in (ROOT / EXAMPLE).read_text().split("\n"):
        text = line.split("#")[0].strip()
        if line.startswith("["):
            section = re.sub(r"\d+$", "", text.strip("[]"))
        elif "=" in text:
            key, _, given = text.partition("=")
            keys[(section, key.strip())] = value(given)
    return keys


def compare(keys, where, others, has_defaults):
    for section, key in sorted(keys.keys() - others.keys()):
        problem(f"{where} has no key {key} of [{section}], which the library reads")
    for section, key in sorted(others.keys() - keys.keys()):
        problem(f"{where} has a key {key} of [{section}], which the library does not read")
    for section, key in sorted(keys.keys() & others.keys()):
        if has_defaults(section) and keys[(section, key)] != others[(section, key)]:
            problem(f"{where}: {key} is {others[(section, key)]!r}, and by default {keys[(section, key)]!r}")


def main():
    keys = read_keys()
    compare(keys, PAGE, documented_keys(), lambda section: True)
    # What the example's channels receive is an example.
    compare(keys, EXAMPLE, example_keys(), lambda section: section == "config")
    for text in problems:
        print(text)
    print(f"{len(keys)} keys in the code")
    return 1 if problems or not keys else 0


if __name__ == "__main__":
    sys.exit(main())
