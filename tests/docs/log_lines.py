"""docs/operations.md lists exactly the lines that the library writes: file, level and text.

A text in the page that ends with "…" is the beginning of a longer one. A way to write that is not read here
fails the check rather than going unnoticed. What any page quotes of a line is looked up too.
"""

import re
import sys

from cpp_text import ROOT, calls, decoded, literal, macros, sources, with_literals_blank
from markdown import outside_fences, page, page_paths, rows

PAGE = "docs/operations.md"
LEVELS = {"LOG_ERROR": "E", "LOG_WARNING": "W", "LOG_INFO": "I", "LOG_DEBUG": "D", "LOG_DEBUG_EX": "X"}

# How a line may come about, and where its text stands among the arguments.
LOG_CALLS = {"KOVA_LOG": 1, "KOVA_LOG_AS": 2, "WriteLogInSignal": 1}
PLAIN_CALLS = "printf|puts"
# What would write a line past the above. Members of streams write files.
OTHER_WRITERS = (
    r"(?<![\w.>])(v?fprintf|vprintf|v?dprintf|fputs|fputc|putchar|fwrite|perror|psignal|v?syslog"
    r"|writev?|WriteLog|LogMessage|cout|clog)\b"
)
# The log's own inside, which hands on what others say.
LOG_ITSELF = {"public/log/CommonLog.cpp", "public/log/CommonLog.h"}
LINES_OF_THE_LOG = {("CommonLog.cpp", "stdout", "fopen failed with error: %s (errno: %d)")}
# Composed texts that are no lines: names, headings, the frame around every line.
OTHER_TEXTS = {
    "%s [%04d%02d%02d][%02d:%02d:%02d][%lu] ",
    "kova_u50_%04d%02d%02d_%02d%02d%02d.log",
    "%s/kova_u50_%04d%02d%02d_%02d%02d%02d.log",
    "kova_u50_dma_%04d%02d%02d_%02d%02d%02d_%d.bin",
    "kova_u50_dma_%04d%02d%02d_%02d%02d%02d_%d.pcap",
    "***********Tcp shot start, %04d%02d%02d_%02d%02d%02d, shot cnt is %d.************",
    "/tmp/.shfe_%04d%02d%02d",
    "%u,%s,%u,%lu,%d,%lu,%u,%d,%d,%u,%d,%d",
}
FRAME_OF_A_SIGNAL_LINE = "[%s:%d][%s]"

problems = []


def problem(text):
    problems.append(text)


def as_written(text):
    return text.removesuffix("\n").replace("%%", "%")


def function_around(code, position):
    """The function whose body the position stands in."""
    heads = re.finditer(r"(\w+)\([^;{}]*\)\s*(?:const\s*)?(?:noexcept\s*)?\{", code[:position])
    return [head.group(1) for head in heads if head.group(1) not in ("if", "for", "while", "switch")][-1]


def body_of(code, function):
    head = re.search(rf"\b{function}\([^;{{}}]*\)\s*\{{", code)
    return code[head.end() : code.index("\n}\n", head.end())] if head else ""


def composed_texts(everything, source, call):
    """What a line whose format is "%s" may say: a text that is handed in, or that a function composes."""
    argument = call.arguments[-1]
    composed = re.fullmatch(r"(\w+)\(.*\)\.szText", argument)
    if composed:
        bodies = [body_of(each.code, composed.group(1)) for each in everything]
        return [literal(c.arguments[2]) for body in bodies for c in calls(body, "snprintf")]
    function = function_around(source.code, call.begin)
    given = [c.arguments[-1] for each in everything for c in calls(each.code, function) if c.arguments]
    return [literal(each) for each in given if not each.startswith("const char*")]


def lines_of_calls(everything, source):
    for call in calls(source.code, "|".join(LOG_CALLS)):
        level = LEVELS.get(call.arguments[0])
        text = literal(call.arguments[LOG_CALLS[call.name]])
        texts = composed_texts(everything, source, call) if text == "%s" else [text]
        if level is None or not texts or None in texts:
            problem(f"{source.path}: cannot see what this line says: {call.name}({', '.join(call.arguments)})")
            continue
        for each in texts:
            yield level, each.removeprefix(FRAME_OF_A_SIGNAL_LINE)


def lines_past_the_log(source):
    for call in calls(source.code, PLAIN_CALLS):
        text = literal(call.arguments[0])
        if text is None:
            problem(f"{source.path}: cannot see what this prints: {call.name}({', '.join(call.arguments)})")
        else:
            yield "stdout", text
    for statement in re.findall(r"\bstd::cerr\s*<<([^;]*);", source.code):
        pieces = [piece.strip() for piece in statement.split("<<")]
        texts = [literal(piece) for piece in pieces if piece not in ("std::endl", r"'\n'")]
        yield "stderr", "".join("%s" if text is None else text for text in texts)


def check_for_other_writers(source, known_texts):
    for name in set(macros((ROOT / source.path).read_text())) - LOG_CALLS.keys():
        problem(f"{source.path}: what the macro {name} writes is not seen here")
    if source.path not in LOG_ITSELF:
        for match in re.finditer(OTHER_WRITERS, with_literals_blank(source.code)):
            call = next(calls(source.code[match.start(1) :], re.escape(match.group(1))), None)
            is_into_a_file = call and match.group(1) == "fprintf" and call.arguments[0] not in ("stdout", "stderr")
            if not is_into_a_file:
                problem(f"{source.path}: writes in a way that this check cannot read: {match.group(1)}")
    for call in calls(source.code, "v?snprintf"):
        text = literal(call.arguments[2])
        if text is not None and as_written(text) not in known_texts:
            problem(f"{source.path}: neither a line of the page nor known as another text: {text!r}")


def written_lines():
    everything = sources("src", "public")
    lines = set(LINES_OF_THE_LOG)
    for source in everything:
        if source.path not in LOG_ITSELF:
            for level, text in (*lines_of_calls(everything, source), *lines_past_the_log(source)):
                lines.add((source.name, level, as_written(text)))
    known_texts = OTHER_TEXTS | {text for _, _, text in lines}
    for source in everything:
        check_for_other_writers(source, known_texts)
    code_of_the_log = "".join(source.code for source in everything if source.path in LOG_ITSELF)
    for name, _, text in LINES_OF_THE_LOG:
        if text not in decoded(code_of_the_log):
            problem(f"{name}: no longer says {text!r}")
    return lines


def documented_lines():
    lines = {}
    for row in rows(PAGE, "Level"):
        file, texts = re.match(r"`([^`]+)`", row.section), row.codes("Line")
        if not file or not texts:
            problem(f"{PAGE}:{row.line}: wants a text in backticks, and its file's name to begin the heading")
            continue
        for text in texts:
            lines[(file.group(1), row.cells["Level"], text)] = row
        if not row.cells.get("Meaning") or not row.cells.get("What to do"):
            problem(f"{PAGE}:{row.line}: a line without its meaning or without what to do")
    return lines


def check_quotes(written):
    """Whatever stands in backticks and has a place for a value is a part of a line, or of several around a "…"."""
    for path in page_paths():
        for number, text in outside_fences(page(path)):
            for quote in re.findall(r"`([^`]*%[0-9]*l?[dusxp][^`]*)`", text):
                for piece in quote.split("…"):
                    if not any(piece in line for _, _, line in written):
                        problem(f"{path}:{number}: no line has this: {piece!r}")


def is_meant(documented, written):
    if documented[:2] != written[:2]:
        return False
    text = documented[2]
    return written[2].startswith(text[:-1]) if text.endswith("…") else written[2] == text


def main():
    written, documented = written_lines(), documented_lines()
    for each in sorted(written):
        if not any(is_meant(row, each) for row in documented):
            problem(f"{PAGE} has no line [{each[1]}] {each[2]!r} under {each[0]}")
    for each, row in documented.items():
        if sum(is_meant(each, line) for line in written) != 1:
            problem(f"{PAGE}:{row.line}: {each[0]} writes no such line, or several: [{each[1]}] {each[2]!r}")
    check_quotes(written)
    for text in problems:
        print(text)
    print(f"{len(written)} lines in the code, {len(documented)} in {PAGE}")
    return 1 if problems or not written else 0


if __name__ == "__main__":
    sys.exit(main())
