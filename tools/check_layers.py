#!/usr/bin/env python3
"""Checks the direction of includes: rooms and sub-rooms use only what lies to their left, and no units form a circle.

A unit is a header with its source file.
"""
import pathlib
import re
import sys

ORDER = ["core", "fs", "protocol", "config", "checks", "agent"]
MAY_USE = {room: set(ORDER[: i + 1]) for i, room in enumerate(ORDER)}
# The client stands beside the agent: it may use the configuration loader and what lies below it.
MAY_USE["client"] = MAY_USE["config"] | {"client"}

# Inside a room. What stands beside the sub-rooms may use all of them; the gate is open to all.
SUBROOMS = {
    "checks/files": {"checks/files"},
    "checks/log": {"checks/log", "checks/files"},
    "checks/process": {"checks/process"},
}
OPEN = {"checks/gate"}


def refusal(unit: str, target: str) -> bool:
    """Whether `unit` must not include `target`; both are paths without suffix."""
    room, other = unit.split("/")[0], target.split("/")[0]
    if other not in MAY_USE[room]:
        return True
    folder = str(pathlib.PurePath(unit).parent)
    if folder not in SUBROOMS or other != room or target in OPEN:
        return False
    return str(pathlib.PurePath(target).parent) not in SUBROOMS[folder]


def circle(uses: dict[str, set[str]]) -> list[str]:
    """The units of one circle, the first again at the end; empty when there is none."""
    done: set[str] = set()

    def walk(unit: str, path: list[str]) -> list[str]:
        if unit in path:
            return path[path.index(unit):] + [unit]
        if unit in done:
            return []
        for target in sorted(uses.get(unit, ())):
            found = walk(target, path + [unit])
            if found:
                return found
        done.add(unit)
        return []

    for start in sorted(uses):
        found = walk(start, [])
        if found:
            return found
    return []


def main() -> int:
    root = pathlib.Path(__file__).resolve().parent.parent / "src"
    bad = 0
    uses: dict[str, set[str]] = {}
    for path in sorted(root.rglob("*.[ch]*")):
        unit = str(path.relative_to(root).with_suffix(""))
        folder = str(pathlib.PurePath(unit).parent)
        if folder not in MAY_USE and folder not in SUBROOMS:
            print(f"{path}: unknown room {folder}")
            bad = 1
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s*["<]([^">]+)[">]', line)
            if not match or not (match[0].endswith('"') or (root / match[1]).exists()):
                continue
            target = str(pathlib.PurePath(match[1]).with_suffix(""))
            if target == unit:
                continue
            uses.setdefault(unit, set()).add(target)
            if refusal(unit, target):
                print(f"{path}:{number}: {folder} must not include {target}.h")
                bad = 1
    found = circle(uses)
    if found:
        print("a circle of includes: " + " -> ".join(found))
        bad = 1
    if not uses:
        print("no source files found")
        bad = 1
    return bad


if __name__ == "__main__":
    sys.exit(main())
