#!/usr/bin/env bash
# Captures wide.txt: lsof columns widened by a seven-digit process id, a long user name and
# four-digit descriptors, plus a UDP socket on a scoped (link-local) IPv6 address.
# Needs root (to raise pid_max, set the next pid and add a user).
# Run: sudo tests/data/capture-wide.sh tests/data
set -euo pipefail
out_dir="${1:-.}"
user=corvinatestlonguser
id "$user" >/dev/null 2>&1 || useradd -M "$user"
old_max=$(cat /proc/sys/kernel/pid_max)
echo 4194304 > /proc/sys/kernel/pid_max
echo 2345670 > /proc/sys/kernel/ns_last_pid
lsof=$(command -v lsof)
tmp=$(mktemp)
chmod 666 "$tmp"
/usr/bin/python3 - "$lsof" "$tmp" "$user" <<'PY'
import os, pwd, resource, socket, subprocess, sys
lsof, out, user = sys.argv[1], sys.argv[2], sys.argv[3]
resource.setrlimit(resource.RLIMIT_NOFILE, (4096, 4096))
entry = pwd.getpwnam(user)
os.setgid(entry.pw_gid)
os.setuid(entry.pw_uid)
# Changing credentials makes /proc/self root-owned; lsof must read our own descriptors.
import ctypes
ctypes.CDLL(None).prctl(4, 1, 0, 0, 0)  # PR_SET_DUMPABLE
keep = [open("/dev/null") for _ in range(1100)]  # pushes descriptors past 1000
s = socket.socket(); s.bind(("127.0.0.1", 0)); s.listen()
c = socket.create_connection(s.getsockname()); a, _ = s.accept()
u = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM); u.bind(("::1", 0))
# A scoped address: bound to the first link-local address, nothing is sent.
ll = [l.split()[0] for l in open("/proc/net/if_inet6") if l.split()[0].startswith("fe80")]
if ll:
    iface = [l.split()[5] for l in open("/proc/net/if_inet6") if l.split()[0] == ll[0]][0]
    addr = ":".join(ll[0][i:i + 4] for i in range(0, 32, 4))
    v = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM); v.bind((addr, 0, 0, socket.if_nametoindex(iface)))
text = subprocess.run([lsof, "-i", "-n", "-P", "+c", "0", "-a", "-p", str(os.getpid())],
                      capture_output=True, text=True)
sys.stderr.write(text.stderr)
text = text.stdout
open(out, "w").write(text)
PY
cp "$tmp" "$out_dir/wide.txt"
rm -f "$tmp"
echo "$old_max" > /proc/sys/kernel/pid_max
