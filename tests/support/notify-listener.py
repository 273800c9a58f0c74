#!/usr/bin/env python3
"""Stands in for the service manager's notification socket: binds a datagram
socket at argv[1] and appends each message it gets to argv[2], one line a
field, each line prefixed by the epoch time it arrived."""
import socket
import sys
import time

sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
sock.bind(sys.argv[1])
with open(sys.argv[2], "a", buffering=1) as out:
    while True:
        data = sock.recv(65536).decode("utf-8", "replace")
        now = time.time()
        for field in data.split("\n"):
            if field:
                out.write(f"{now:.3f} {field}\n")
