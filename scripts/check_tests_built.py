#!/usr/bin/env python3
"""Checks that every test, benchmark and fuzz target of the tree is part of the build.

Each *Test.cpp under Tests/, and each *Benchmark.cpp and *Fuzzer.cpp anywhere, must be named in a CMake file that the top one reaches
through add_subdirectory and include. Prints each file that isn't; exit code 1 if there is any.

    check_tests_built.py [--build FOLDER] [ROOT]  with --build each file must stand in the compile_commands.json of FOLDER as well
    check_tests_built.py --self-test              shows on made-up trees that each kind of fault is found
"""

import json
import re
import sys
import tempfile
from pathlib import Path

COMMENT = re.compile(r"#.*")
COMMAND = re.compile(r"^[ \t]*(add_subdirectory|include)[ \t]*\([ \t]*([^ \t)]+)", re.MULTILINE)
ENDINGS = ("Test.cpp", "Benchmark.cpp", "Fuzzer.cpp")


def built_sources(cmake_file, seen):
    """All files that the CMake file and those it reaches name."""
    if cmake_file in seen or not cmake_file.is_file():
        return set()
    seen.add(cmake_file)
    folder = cmake_file.parent
    text = COMMENT.sub("", cmake_file.read_text(encoding="utf-8"))
    found = {(folder / word).resolve() for word in re.split(r'[\s()"]+', text) if word.endswith(".cpp")}
    for command, argument in COMMAND.findall(text):
        below = folder / argument / "CMakeLists.txt" if command == "add_subdirectory" else folder / argument
        found |= built_sources(below.resolve(), seen)
    return found


def wanted_sources(root):
    for top in ("Tests", "Benchmarks", "Source", "Host", "Samples"):
        for path in sorted((root / top).rglob("*.cpp")):
            if path.name.endswith(ENDINGS) and (top == "Tests" or not path.name.endswith("Test.cpp")):
                yield path


def check(root, build=None):
    root = root.resolve()
    findings = []
    named = built_sources(root / "CMakeLists.txt", set())
    compiled = None
    if build is not None:
        commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
        compiled = {Path(command["directory"], command["file"]).resolve() for command in commands}
    count = 0
    for path in wanted_sources(root):
        count += 1
        if path not in named:
            findings.append(f"{path.relative_to(root)}: no CMakeLists.txt of the build names it")
        elif compiled is not None and path not in compiled:
            findings.append(f"{path.relative_to(root)}: {build} doesn't compile it")
    if not count:
        findings.append(f"{root}: no tests found")
    return findings


def self_test():
    base = {
        "CMakeLists.txt": "add_subdirectory(Tests)\nadd_subdirectory(Benchmarks)\n",
        "Tests/CMakeLists.txt": "add_subdirectory(Low)\nadd_subdirectory(Fuzz)\n",
        "Tests/Low/CMakeLists.txt": "add_folder_tests(LowTests\n    SOURCES\n        ATest.cpp\n        Deep/BTest.cpp\n    LINKS Low)\n",
        "Tests/Low/ATest.cpp": "",
        "Tests/Low/Deep/BTest.cpp": "",
        "Tests/Low/Helper.cpp": "",
        "Tests/Fuzz/CMakeLists.txt": "add_fuzzer(CFuzzer SOURCES CFuzzer.cpp)\n",
        "Tests/Fuzz/CFuzzer.cpp": "",
        "Benchmarks/CMakeLists.txt": "add_benchmark(DBenchmark SOURCES DBenchmark.cpp)\n",
        "Benchmarks/DBenchmark.cpp": "",
    }
    cases = [
        ("a sound tree", {}, None),
        ("a test that nobody names", {"Tests/Low/NewTest.cpp": ""}, "Tests/Low/NewTest.cpp"),
        ("a test that a comment names", {"Tests/Low/CMakeLists.txt": "add_folder_tests(LowTests SOURCES Deep/BTest.cpp)\n# ATest.cpp\n"},
         "Tests/Low/ATest.cpp"),
        ("a test of the same name elsewhere", {"Tests/Fuzz/ATest.cpp": ""}, "Tests/Fuzz/ATest.cpp"),
        ("a folder out of the build", {"Tests/CMakeLists.txt": "add_subdirectory(Fuzz)\n"}, "Tests/Low/Deep/BTest.cpp"),
        ("a benchmark out of the build", {"Benchmarks/CMakeLists.txt": ""}, "Benchmarks/DBenchmark.cpp"),
        ("a fuzz target out of the build", {"Tests/Fuzz/CMakeLists.txt": ""}, "Tests/Fuzz/CFuzzer.cpp"),
    ]
    failed = 0
    for name, changes, expected in cases:
        with tempfile.TemporaryDirectory() as folder:
            for path, text in {**base, **changes}.items():
                target = Path(folder) / path
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_text(text, encoding="utf-8")
            findings = check(Path(folder))
        sound = not findings if expected is None else any(finding.startswith(expected) for finding in findings)
        if not sound:
            failed += 1
            print(f"self-test: {name}: expected {expected!r}, found {findings}")
    print(f"check_tests_built self-test: {len(cases) - failed} of {len(cases)} cases as expected")
    return 1 if failed else 0


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    build = None
    if arguments[:1] == ["--build"]:
        build, arguments = Path(arguments[1]), arguments[2:]
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parent.parent
    findings = check(root, build)
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
