#!/usr/bin/env python3
"""Fail when a SEED key can be read in files: find_key.py KEYFILE FILE...

Looked for are its 16 bytes and its hexadecimal digits, in packages also in every file that they hold; what is compressed there,
debug information too, is uncompressed first.
"""
import gzip
import pathlib
import subprocess
import sys
import tempfile


def contents(path):
    """What can be read in a file, as (where, bytes)."""
    if path.suffix in (".deb", ".ddeb"):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["dpkg-deb", "--raw-extract", path, folder], check=True)
            for inner in sorted(pathlib.Path(folder).rglob("*")):
                if inner.is_file() and not inner.is_symlink():
                    for where, data in contents(inner):
                        yield f"{path.name}: {where.removeprefix(folder)}", data
        return
    data = path.read_bytes()
    if data.startswith(b"\x7fELF"):
        with tempfile.NamedTemporaryFile() as plain:
            subprocess.run(["objcopy", "--decompress-debug-sections", path, plain.name], check=True)
            data += pathlib.Path(plain.name).read_bytes()
    elif data.startswith(b"\x1f\x8b"):
        data += gzip.decompress(data)
    yield str(path), data


def main():
    key = pathlib.Path(sys.argv[1]).read_text(encoding="ascii").strip()
    raw = bytes.fromhex(key)
    if len(raw) != 16:
        sys.exit(f"{sys.argv[1]} has no key")
    found, looked = [], 0
    for name in sys.argv[2:]:
        for where, data in contents(pathlib.Path(name)):
            looked += 1
            found += [f"{where}: the SEED key as bytes"] * (raw in data)
            found += [f"{where}: the SEED key as text"] * (key.lower().encode() in data.lower())
    print(*found, f"{looked} files searched for the SEED key", sep="\n")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
