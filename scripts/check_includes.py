#!/usr/bin/env python3
"""Checks that includes run one way.

The folders of Source/ and Host/ may include only folders that stand above them in their CMakeLists.txt; Source/ knows nothing of Host/,
and neither knows tests, benchmarks or samples. A source with its header of the same stem is one room, and the includes between rooms
have no circle, inside a folder as well. Prints each offending include or circle; exit code 1 if there is any.

    check_includes.py [ROOT]       ROOT defaults to the repository
    check_includes.py --self-test  shows on made-up trees that each kind of fault is found
"""

import re
import sys
import tempfile
from pathlib import Path

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(["<])([^">]+)[">]', re.MULTILINE)
SUBDIRECTORY = re.compile(r'^[ \t]*add_subdirectory\([ \t]*([^ \t)]+)', re.MULTILINE)
COMMENT = re.compile(r'#.*')
SUFFIXES = {".h", ".cpp"}


def folder_order(root, top):
    """Folder names of root/top in the order of its CMakeLists.txt."""
    text = COMMENT.sub("", (root / top / "CMakeLists.txt").read_text(encoding="utf-8"))
    return SUBDIRECTORY.findall(text)


def sources(root):
    for top in ("Source", "Host"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in SUFFIXES:
                yield path


def resolve(root, path, name):
    """The file that an include means, None if it isn't one of the tree's."""
    for base in (path.parent, root / "Source", root):
        target = (base / name).resolve()
        if target.is_file() and root in target.parents:
            return target
    return None


def floor_of(root, path, orders):
    """(top, index of the folder), index -1 for a file that stands beside the folders."""
    parts = path.relative_to(root).parts
    if parts[0] not in orders:
        return parts[0], None
    if len(parts) == 2:
        return parts[0], -1
    return parts[0], orders[parts[0]].index(parts[1]) if parts[1] in orders[parts[0]] else None


def forbidden(source, target):
    """Why a file on one floor may not include one on another; None if it may."""
    (source_top, source_index), (target_top, target_index) = source, target
    if target_top not in ("Source", "Host"):
        return f"{source_top}/ may not use {target_top}/"
    if source_top == "Source" and target_top == "Host":
        return "Source/ may not use Host/"
    if source_top == target_top and target_index > source_index:
        return "a folder uses only those above it"
    return None


def find_circles(graph):
    """The strongly connected components of more than one room, each sorted. Iterative, after Tarjan (1972)."""
    index, low, on_stack, stack, circles = {}, {}, set(), [], []
    for start in sorted(graph):
        if start in index:
            continue
        work = [(start, iter(sorted(graph[start])))]
        index[start] = low[start] = len(index)
        stack.append(start)
        on_stack.add(start)
        while work:
            node, targets = work[-1]
            target = next(targets, None)
            if target is None:
                work.pop()
                if work:
                    low[work[-1][0]] = min(low[work[-1][0]], low[node])
                if low[node] == index[node]:
                    circle = []
                    while not circle or circle[-1] != node:
                        circle.append(stack.pop())
                        on_stack.discard(circle[-1])
                    if len(circle) > 1:
                        circles.append(sorted(circle))
            elif target not in index:
                index[target] = low[target] = len(index)
                stack.append(target)
                on_stack.add(target)
                work.append((target, iter(sorted(graph[target]))))
            elif target in on_stack:
                low[node] = min(low[node], index[target])
    return circles


def check(root):
    """A list of findings, each one line or a circle with its includes."""
    root = root.resolve()
    orders = {top: folder_order(root, top) for top in ("Source", "Host")}
    findings = []
    graph, edges = {}, {}
    count = 0
    for path in sources(root):
        count += 1
        shown = path.relative_to(root)
        floor = floor_of(root, path, orders)
        room = str(shown.with_suffix(""))
        graph.setdefault(room, set())
        if floor[1] is None:
            findings.append(f"{shown}: its folder isn't in {floor[0]}/CMakeLists.txt")
            continue
        text = path.read_text(encoding="utf-8")
        for match in INCLUDE.finditer(text):
            quote, name = match.groups()
            line = text.count("\n", 0, match.start()) + 1
            target = resolve(root, path, name)
            if target is None:
                if quote == '"':
                    findings.append(f'{shown}:{line}: "{name}" is no file of the tree; quotes are for the tree\'s own')
                continue
            target_floor = floor_of(root, target, orders)
            reason = None if target_floor == (target_floor[0], None) and target_floor[0] in orders else forbidden(floor, target_floor)
            if reason:
                findings.append(f'{shown}:{line}: includes "{name}": {reason}')
            target_room = str(target.relative_to(root).with_suffix(""))
            if target_room != room:
                graph[room].add(target_room)
                graph.setdefault(target_room, set())
                edges.setdefault((room, target_room), f'{shown}:{line}: "{name}"')
    if not count:
        findings.append(f"{root}: no sources found")
    for circle in find_circles(graph):
        members = set(circle)
        inside = [edges[pair] for pair in sorted(edges) if pair[0] in members and pair[1] in members]
        findings.append("circle of " + ", ".join(circle) + "\n    " + "\n    ".join(inside))
    return findings


def self_test():
    base = {
        "Source/CMakeLists.txt": "add_subdirectory(Low)\n# add_subdirectory(Gone)\nadd_subdirectory(High)\n",
        "Host/CMakeLists.txt": "add_subdirectory(First)\nadd_subdirectory(Second)\n",
        "Source/Low/A.h": "#pragma once\n#include <vector>\n",
        "Source/Low/A.cpp": '#include "Low/A.h"\n',
        "Source/High/B.h": '#include "Low/A.h"\n',
        "Source/High/Inner/C.h": '#include "High/B.h"\n',
        "Source/High/BLoad.cpp": '#include "High/B.h"\n#include "High/Inner/C.h"\n',
        "Host/First/D.h": '#include "High/B.h"\n',
        "Host/Second/E.cpp": '#include "Host/First/D.h"\n',
        "Tests/Fake.h": "",
    }
    cases = [
        ("a sound tree", {}, None),
        ("an include upwards", {"Source/Low/A.cpp": '#include "High/B.h"\n'}, "a folder uses only those above it"),
        ("an include upwards in angle brackets", {"Source/Low/A.cpp": "#include <High/B.h>\n"}, "a folder uses only those above it"),
        ("an include upwards in Host", {"Host/First/D.h": '#include "Host/Second/F.h"\n', "Host/Second/F.h": ""},
         "a folder uses only those above it"),
        ("the library uses the host", {"Source/High/B.h": '# include "Host/First/D.h"\n'}, "Source/ may not use Host/"),
        ("the library uses tests", {"Source/High/B.h": '#include "Tests/Fake.h"\n'}, "may not use Tests/"),
        ("a circle of headers", {"Source/Low/A.h": '#include "Low/G.h"\n', "Source/Low/G.h": '#include "Low/A.h"\n'}, "circle of"),
        ("a circle through a source", {"Source/Low/A.cpp": '#include "Low/G.h"\n', "Source/Low/G.h": '#include "Low/A.h"\n'}, "circle of"),
        ("a circle of three over subfolders",
         {"Source/High/B.h": '#include "High/Other/H.h"\n', "Source/High/Other/H.h": '#include "High/Inner/C.h"\n'}, "circle of"),
        ("a file that isn't there", {"Source/Low/A.h": '#include "Low/Missing.h"\n'}, "is no file of the tree"),
        ("a folder out of the build", {"Source/Gone/I.h": ""}, "isn't in Source/CMakeLists.txt"),
    ]
    failed = 0
    for name, changes, expected in cases:
        with tempfile.TemporaryDirectory() as folder:
            for path, text in {**base, **changes}.items():
                target = Path(folder) / path
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_text(text, encoding="utf-8")
            findings = check(Path(folder))
        sound = not findings if expected is None else any(expected in finding for finding in findings)
        if not sound:
            failed += 1
            print(f"self-test: {name}: expected {expected!r}, found {findings}")
    print(f"check_includes self-test: {len(cases) - failed} of {len(cases)} cases as expected")
    return 1 if failed else 0


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parent.parent
    findings = check(root)
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
