#!/usr/bin/env python3
"""Compare the binary interface of a library with the recorded one: check_abi.py [--update] [--headers FOLDER] LIBRARY RECORD

Fails on every change but an added symbol. The library must have debug information, and be optimised as those that are
shipped are. Its record is made with the options of the recorded one and the two are compared without any: given headers or
a library itself, abidiff would take most changes for private ones. Enumerators, macros and inline functions, at which it does not
look, are check_headers.py's.
"""
import argparse
import lzma
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]


def main():
    parser = argparse.ArgumentParser(description="Compare the binary interface of a library with the recorded one.")
    parser.add_argument("--update", action="store_true", help="write RECORD anew")
    parser.add_argument("--headers", default=ROOT / "include", help="what is not declared there is private")
    parser.add_argument("library", type=pathlib.Path)
    parser.add_argument("record", type=pathlib.Path)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        now, then = (pathlib.Path(folder, name) for name in ("now.abi", "then.abi"))
        subprocess.run(["abidw", "--no-show-locs", "--no-corpus-path", "--no-comp-dir-path", "--drop-private-types",
                        "--headers-dir", options.headers, "--out-file", now, options.library], check=True)
        if options.update:
            options.record.parent.mkdir(exist_ok=True)
            options.record.write_bytes(lzma.compress(now.read_bytes(), preset=9))
            return 0
        then.write_bytes(lzma.decompress(options.record.read_bytes()))
        done = subprocess.run(["abidiff", "--no-added-syms", then, now], stdout=subprocess.PIPE, text=True, check=False)
    print(done.stdout, end="")
    if done.returncode != 0:
        print(f"abidiff: {done.returncode}. Programs that were built before may not run any more: docs/abi.md says what then.")
    return done.returncode


if __name__ == "__main__":
    sys.exit(main())
