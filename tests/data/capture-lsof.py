#!/usr/bin/env python3
"""Captures the lsof outputs in this folder.

Opens loopback sockets only, in this process (renamed "echo server" so that lsof escapes the
blank), and saves `lsof -i -n -P +c 0` restricted to this process after each step:

  sequence-1.txt  a TCP listener, an established pair, UDP on IPv4 and on IPv6
  sequence-2.txt  a second pair opened; the first pair half-closed (CLOSE_WAIT / FIN_WAIT2)
  sequence-3.txt  the second pair gone entirely

Run it as any user: python3 tests/data/capture-lsof.py tests/data
"""
import ctypes
import os
import socket
import subprocess
import sys
import time

out_dir = sys.argv[1] if len(sys.argv) > 1 else "."
ctypes.CDLL(None).prctl(15, b"echo server", 0, 0, 0)  # PR_SET_NAME
lsof = next(p for p in ("/usr/sbin/lsof", "/usr/bin/lsof") if os.access(p, os.X_OK))


def capture(name):
    time.sleep(0.2)
    text = subprocess.run([lsof, "-i", "-n", "-P", "+c", "0", "-a", "-p", str(os.getpid())],
                          capture_output=True, text=True).stdout
    with open(os.path.join(out_dir, name), "w") as f:
        f.write(text)


listener = socket.socket()
listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
listener.bind(("127.0.0.1", 0))
listener.listen()
first_client = socket.create_connection(listener.getsockname())
first_server, _ = listener.accept()
udp4 = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
udp4.bind(("127.0.0.1", 0))
udp6 = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
udp6.bind(("::1", 0))
capture("sequence-1.txt")

second_client = socket.create_connection(listener.getsockname())
second_server, _ = listener.accept()
first_server.shutdown(socket.SHUT_WR)
capture("sequence-2.txt")

second_client.close()
second_server.close()
time.sleep(0.2)
capture("sequence-3.txt")
