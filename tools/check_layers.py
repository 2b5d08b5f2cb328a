#!/usr/bin/env python3
"""Checks that every room includes only itself and the rooms to its left."""
import pathlib
import re
import sys

ORDER = ["core", "fs", "protocol", "config", "checks", "agent"]
# The client stands beside the agent: it may use the configuration loader and what lies below it.
MAY_USE = {room: set(ORDER[: i + 1]) for i, room in enumerate(ORDER)}
MAY_USE["client"] = MAY_USE["config"] | {"client"}


def main() -> int:
    root = pathlib.Path(__file__).resolve().parent.parent / "src"
    bad = files = 0
    for path in sorted(root.rglob("*.[ch]*")):
        files += 1
        room = path.relative_to(root).parts[0]
        if room not in MAY_USE:
            print(f"{path}: unknown room {room}")
            bad = 1
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
            if not match:
                continue
            target = match[1].split("/")[0] if "/" in match[1] else None
            if target not in MAY_USE[room]:
                print(f"{path}:{number}: {room} must not include {match[1]}")
                bad = 1
    if not files:
        print("no source files found")
        bad = 1
    return bad


if __name__ == "__main__":
    sys.exit(main())
