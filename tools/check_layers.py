#!/usr/bin/env python3
"""Refuses upward includes, and shared bytes that are touched outside the one header for them.

Usage: check_layers.py ROOT. Prints one line for each violation and exits with 1 if there is any.

The layers, lowest first, are those of docs/architecture.md. A file may include its own layer and
those below. The folders of platform/ form one layer: together they stand for one library.
"""

import pathlib
import re
import sys

LAYERS = ["platform", "src/VeskCore", "src/Vesk", "src/MoxVesk", "src/Rsvp", "apps"]
INCLUDE_ROOTS = ["platform", "src", "apps"]
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')

# Memory order is spelled out in the accessors of shared bytes and nowhere else; fences and
# volatile have no place in the protocol at all.
SHARED_BYTES = pathlib.PurePosixPath("platform/Mem/SharedWords.h")
FORBIDDEN = re.compile(r"\bmemory_order|\batomic_thread_fence\b|\bvolatile\b|\batomic_ref\b")
# Layers that see mapped memory copy it through the accessors only; the listed files use memcpy on
# private images.
MAPPED = ["platform/Vesk", "platform/VeskCore", "src/VeskCore", "src/Vesk"]
MEMCPY = re.compile(r"\bmemcpy\b|\bmemmove\b|\bmemset\b")
MEMCPY_ON_PRIVATE = {
    "platform/Vesk/SlotHeaderCommon.cpp": "fills the name of a private header image",
    "src/Vesk/VeskInterface.h": "copies the default value into a caller's buffer",
}


def layer_of(path):
    """The index of the layer that a repository path belongs to, or None."""
    best = None
    for index, layer in enumerate(LAYERS):
        if path == layer or path.startswith(layer + "/"):
            if best is None or len(layer) > len(LAYERS[best]):
                best = index
    return best


def resolve(root, includer, name):
    """The repository path of an included file, or None for a file outside the repository."""
    candidates = [includer.parent / name] + [root / base / name for base in INCLUDE_ROOTS]
    for candidate in candidates:
        if candidate.is_file():
            return candidate.resolve().relative_to(root).as_posix()
    return None


def without_comments(text):
    text = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group().count("\n"), text, flags=re.S)
    return [line.split("//")[0] for line in text.splitlines()]


def violations(root):
    for layer in ("platform", "src", "apps"):
        for file in sorted((root / layer).rglob("*")):
            if file.suffix not in (".h", ".cpp"):
                continue
            path = file.relative_to(root).as_posix()
            own = layer_of(path)
            for number, line in enumerate(without_comments(file.read_text()), 1):
                where = f"{path}:{number}"
                match = INCLUDE.match(line)
                if match:
                    target = resolve(root, file, match.group(1))
                    if target is None:
                        yield f"{where}: {match.group(1)} is in none of {', '.join(INCLUDE_ROOTS)}"
                    elif own is None or layer_of(target) is None:
                        yield f"{where}: {path} or {target} belongs to no layer"
                    elif layer_of(target) > own:
                        yield f"{where}: layer {LAYERS[own]} includes {target} of a layer above"
                if pathlib.PurePosixPath(path) != SHARED_BYTES and FORBIDDEN.search(line):
                    yield f"{where}: memory order belongs into {SHARED_BYTES}"
                mapped = any(path.startswith(folder + "/") for folder in MAPPED)
                if mapped and MEMCPY.search(line) and path not in MEMCPY_ON_PRIVATE:
                    yield f"{where}: mapped memory is copied through {SHARED_BYTES} only"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    found = list(violations(pathlib.Path(sys.argv[1]).resolve()))
    for line in found:
        print(line, file=sys.stderr)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
