#!/usr/bin/env python3
"""Run programs of an earlier version with a server that answers every call with its own body: run_program.py DICTIONARY
PROGRAM..., the first of which leaves a key file for the others."""
import pathlib
import subprocess
import sys
import tempfile

PEER = pathlib.Path(__file__).resolve().parents[1] / "support/peer.py"


def main():
    dictionary, *programs = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder, \
            subprocess.Popen([sys.executable, PEER, "--connections", "0"], stdout=subprocess.PIPE, text=True) as peer:
        try:
            port = peer.stdout.readline().strip()
            for program in programs:
                done = subprocess.run([program, dictionary, folder, port], stdout=subprocess.PIPE, text=True, check=False)
                print(done.stdout, end="")
                if done.returncode != 0 or done.stdout != "headers of 1.0.0: all as it was\n":
                    sys.exit(f"{program}: exit {done.returncode}")
        finally:
            peer.kill()


main()
