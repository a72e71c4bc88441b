"""Pages of the manual: their blocks of code, and what their commands print."""

import pathlib
import re

SOURCES = pathlib.Path(__file__).resolve().parents[2]


def blocks_of(page):
    """Returns the code blocks of a page of the manual: pairs of the language and the lines."""
    text = (SOURCES / "docs/manual" / page).read_text(encoding="utf-8")
    return [(language, block.splitlines()) for language, block in re.findall(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S)]


def comparable(lines):
    """Returns the lines without what differs from run to run: times, ports, and the last events before a failure."""
    result = []
    for line in lines:
        if re.match(r" {4}\d+\.\d{3} s  ", line):
            continue  # One of the last events.
        line = re.sub(r"(127\.0\.0\.1|0\.0\.0\.0):\d+|port \d+", "PLACE", line)
        result.append(re.sub(r"-?\d+(\.\d+)? (m?s)\b|time=\"[\d.]+\"", r"TIME", line))
    return result


def write_program(path, words):
    """Writes a program that runs these words and its own arguments."""
    path.write_text("#!/bin/sh\nexec " + " ".join(f"'{word}'" for word in words) + ' "$@"\n', encoding="utf-8")
    path.chmod(0o755)
