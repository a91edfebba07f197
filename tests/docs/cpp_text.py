"""Reads C++ sources as text: comments away, calls with their arguments, string literals decoded."""

import re
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

_TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\\n])+\'', re.DOTALL)
_DIRECTIVE = re.compile(r"^[ \t]*#[ \t]*(?!include)[a-z](?:[^\n]*\\\n)*[^\n]*", re.MULTILINE)
_LITERAL = re.compile(r'"((?:\\.|[^"\\])*)"')
_ESCAPES = {"n": "\n", "t": "\t", '"': '"', "'": "'", "\\": "\\"}


@dataclass(frozen=True)
class Source:
    """One file: its path below the tree's root, and its code without comments and macros."""

    path: str
    code: str

    @property
    def name(self):
        return self.path.rsplit("/", 1)[-1]


@dataclass(frozen=True)
class Call:
    name: str
    arguments: list
    begin: int


def without_comments(text):
    """The same text; each comment is the line ends that stood in it, and macros are gone likewise."""
    if 'R"' in text:
        raise ValueError("raw strings are not understood here")

    def blank(match):
        return "\n" * match.group().count("\n") if match.group()[0] in "/ \t#" else match.group()

    return _DIRECTIVE.sub(blank, _TOKEN.sub(blank, text))


def macros(text):
    """Names of the macros that a file defines, its include guard apart."""
    return [name for name in re.findall(r"^[ \t]*#[ \t]*define[ \t]+(\w+)", text, re.MULTILINE)
            if f"#ifndef {name}\n" not in text]


def sources(*folders):
    """Every C++ file below these folders, by path."""
    paths = sorted(p for folder in folders for p in (ROOT / folder).rglob("*") if p.suffix in (".h", ".cpp"))
    return [Source(p.relative_to(ROOT).as_posix(), without_comments(p.read_text())) for p in paths]


def _end_of_arguments(code, begin):
    """Splits from behind an opening bracket to the closing one."""
    arguments, depth, start, position = [], 0, begin, begin
    while True:
        token = _TOKEN.match(code, position)
        if token:
            position = token.end()
            continue
        character = code[position]
        if character in "([{":
            depth += 1
        elif character in ")]}":
            if depth == 0:
                break
            depth -= 1
        elif character == "," and depth == 0:
            arguments.append(code[start:position].strip())
            start = position + 1
        position += 1
    last = code[start:position].strip()
    return arguments + [last] if last or arguments else []


def calls(code, name_pattern):
    """Every call of a function whose name fits, and every declaration that looks like one."""
    for match in re.finditer(rf"(?<![\w\"%])({name_pattern})\s*\(", code):
        yield Call(match.group(1), _end_of_arguments(code, match.end()), match.start())


def literal(argument):
    """The text of an argument that is nothing but string literals, joined; None for any other."""
    if not argument or _LITERAL.sub("", argument).strip():
        return None
    return "".join(decoded(each) for each in _LITERAL.findall(argument))


def decoded(escaped):
    return re.sub(r"\\(0[0-7]*|.)", lambda m: _ESCAPES.get(m.group(1), m.group(0)), escaped)


def with_literals_blank(code):
    """The code with nothing in its string literals; every place stays where it was."""
    return _LITERAL.sub(lambda m: '"' + " " * (len(m.group()) - 2) + '"', code)


def literals(code):
    """Every single string literal of the code."""
    return [decoded(each) for each in _LITERAL.findall(code)]
