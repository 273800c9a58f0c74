#!/usr/bin/env python3
"""Reads state files over and over until SIGTERM, then prints one line per file:
"<file>: <whole> whole reads, <partial> partial". A .json file must parse as
JSON, a .plist as a property list; a missing file is not read.
Usage: state-file-poller.py FILE..."""
import json
import plistlib
import signal
import sys

stopping = False


def stop(*_):
    global stopping
    stopping = True


signal.signal(signal.SIGTERM, stop)
counts = {path: [0, 0] for path in sys.argv[1:]}
while not stopping:
    for path, count in counts.items():
        try:
            with open(path, "rb") as file:
                data = file.read()
        except FileNotFoundError:
            continue
        try:
            json.loads(data) if path.endswith(".json") else plistlib.loads(data)
            count[0] += 1
        except Exception:  # Any parse error: a partial file.
            count[1] += 1
for path, (whole, partial) in counts.items():
    print(f"{path}: {whole} whole reads, {partial} partial")
