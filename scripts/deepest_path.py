#!/usr/bin/env python3
"""Reads gcc's call graphs (-fcallgraph-info=su) below a folder: the largest frames and the deepest
call path from an exported function. Frames of libc and of the platform are not known and not counted.

usage: deepest_path.py FOLDER EXPORTS FRAME_LIMIT

Exits with 1 when a frame is above the limit or has no bound, or when a function calls itself.
"""
import pathlib
import re
import sys

NODE = re.compile(r'^node: \{ title: "([^"]*)" label: "([^"]*)"')
EDGE = re.compile(r'^edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"')
FRAME = re.compile(r"(\d+) bytes \(([^)]*)\)")
INDIRECT = "__indirect_call"


class Graph:
    def __init__(self, folder):
        self.names, self.frames, self.unbounded, self.calls = {}, {}, set(), {}
        for path in pathlib.Path(folder).rglob("*.ci"):
            for line in path.read_text(encoding="utf-8").splitlines():
                self.read(line)
        self.depths = {}

    def read(self, line):
        if node := NODE.match(line):
            title, label = node.groups()
            if frame := FRAME.search(label):
                # "file.cpp:_ZL8takeTextPc.isra.0" and "_Z7logLinePKc" by their names alone.
                mangled = re.search(r"_ZL?(\d+)(\w+)", title)
                name = mangled.group(2)[: int(mangled.group(1))] if mangled else title
                self.names[title] = name
                self.frames[title] = int(frame.group(1))
                if frame.group(2) not in ("static", "dynamic,bounded"):
                    self.unbounded.add(title)
        elif edge := EDGE.match(line):
            self.calls.setdefault(edge.group(1), set()).add(edge.group(2))

    def deepest(self, title, above=()):
        """Octets and functions of the deepest path that begins with `title`."""
        if title in above:
            raise RecursionError(" -> ".join(self.names[t] for t in (*above, title)))
        if title not in self.frames:
            return 0, ()
        if title not in self.depths:
            below = [self.deepest(callee, (*above, title)) for callee in self.calls.get(title, ())]
            octets, path = max(below, default=(0, ()))
            self.depths[title] = self.frames[title] + octets, (title, *path)
        return self.depths[title]


def main():
    folder, exports, limit = sys.argv[1], pathlib.Path(sys.argv[2]), int(sys.argv[3])
    graph = Graph(folder)
    exported = [name for name in exports.read_text(encoding="utf-8").split() if name in graph.frames]
    if not exported:
        sys.exit(f"no exported function in the call graphs of {folder}")
    failed = False
    print("largest frames, octets:")
    for title, octets in sorted(graph.frames.items(), key=lambda f: -f[1])[:5]:
        print(f"  {octets:6} {graph.names[title]}")
        failed |= octets > limit
    for title in sorted(graph.unbounded):
        print(f"  without a bound: {graph.names[title]}")
        failed = True
    try:
        octets, path = max(graph.deepest(name) for name in exported)
    except RecursionError as recursion:
        print(f"calls itself: {recursion}")
        sys.exit(1)
    print(f"deepest call path of {len(exported)} exported functions: {octets} octets")
    for title in path:
        print(f"  {graph.frames[title]:6} {graph.names[title]}")
    for title in sorted(title for title, callees in graph.calls.items() if INDIRECT in callees):
        print(f"  calls through a pointer, not followed: {graph.names.get(title, title)}")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
