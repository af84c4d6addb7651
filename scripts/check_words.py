#!/usr/bin/env python3
"""Checks what no file of the repository may hold: references to documents that it doesn't contain, marks of unfinished business, paths of
one machine, and files above 1 MiB. Looks at the names and texts of all tracked files, and of new ones that aren't ignored.
Prints each finding; exit code 1 if there is any.

    check_words.py              the repository
    check_words.py --self-test  shows that each kind of fault is found
"""

import re
import subprocess
import sys
from pathlib import Path

MAX_BYTES = 1 << 20

# Written in pieces, so that this file passes its own check.
PATTERNS = [
    ("refers to a numbered section of another document", re.compile(r"\bpart" + r" \d+(\.\d+|\b(?= of\b))", re.IGNORECASE)),
    ("refers to another document", re.compile(r"\bspec" + r"(ification|s|ifications)?\b", re.IGNORECASE)),
    ("unfinished", re.compile(r"\b(TO" r"DO|FIX" r"ME)\b")),
    ("a path of one machine", re.compile(r"(?<![A-Za-z0-9_.])/(work|ro" r"ot|farm)(?=/)")),
]


def text_findings(name, text):
    for number, line in enumerate(text.splitlines(), 1):
        for reason, pattern in PATTERNS:
            match = pattern.search(line)
            if match:
                yield f"{name}:{number}: {reason}: {match.group(0)}"


def file_findings(name, data):
    words = re.sub(r"[/._-]", " ", name)
    for reason, pattern in PATTERNS:
        if pattern.search(words):
            yield f"{name}: its name: {reason}"
    if len(data) > MAX_BYTES:
        yield f"{name}: {len(data)} bytes; at most {MAX_BYTES} are kept here"
    # Also through binary files: a capture holds the paths of the machine it was recorded on.
    yield from text_findings(name, data.decode("utf-8", errors="replace"))


def tracked_files(root):
    command = ["git", "-c", f"safe.directory={root}", "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    listed = subprocess.run(command, cwd=root, check=True, stdout=subprocess.PIPE).stdout
    return [name for name in listed.decode("utf-8").split("\0") if name and (root / name).is_file()]


def self_test():
    cases = [
        ("plain.cpp", b"// A spectrum of parts, inspected as specified; timespec, apartments 7.\nint main() {}\n", None),
        ("a.h", b"// As Par" + b"t 9.1 says\n", "a.h:1: refers to a numbered"),
        ("a.h", b"\n// par" + b"t 3 of 8\n", "a.h:2: refers to a numbered"),
        ("a.h", b"// the spe" + b"cification\n", "a.h:1: refers to another"),
        ("a.md", b"see spe" + b"c.md\n", "a.md:1: refers to another"),
        ("Docs/spe" + "c.txt", b"", "Docs/spe" + "c.txt: its name"),
        ("a.cpp", b"// TO" + b"DO: later\n", "a.cpp:1: unfinished"),
        ("a.cpp", b"// FIX" + b"ME\n", "a.cpp:1: unfinished"),
        ("a.sh", b"cd /ro" + b"ot/x\n", "a.sh:1: a path"),
        ("a.data", b"\0\xff/wo" + b"rk/main/x\0", "a.data:1: a path"),
        ("big.bin", b"\0" * (MAX_BYTES + 1), "big.bin: 1048577 bytes"),
    ]
    failed = 0
    for name, data, expected in cases:
        findings = list(file_findings(name, data))
        sound = not findings if expected is None else any(finding.startswith(expected) for finding in findings)
        if not sound:
            failed += 1
            print(f"self-test: {name}: expected {expected!r}, found {findings}")
    print(f"check_words self-test: {len(cases) - failed} of {len(cases)} cases as expected")
    return 1 if failed else 0


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    root = Path(__file__).resolve().parent.parent
    names = tracked_files(root)
    findings = [finding for name in names for finding in file_findings(name, (root / name).read_bytes())]
    if not names:
        findings = ["no files found"]
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
