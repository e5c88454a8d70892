#!/usr/bin/env python3
"""How long `pkixcmp --version` takes beside `openssl version`, turn about in one run.

    bench/startup.py PROGRAM [ROUNDS]"""

import statistics
import subprocess
import sys
import time


def run(command):
    begin = time.perf_counter()
    subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
    return 1e3 * (time.perf_counter() - begin)


program = sys.argv[1]
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 300
ours, peer = [], []
for _ in range(rounds):
    ours.append(run([program, "--version"]))
    peer.append(run(["openssl", "version"]))
a, b = statistics.median(ours), statistics.median(peer)
print(f"pkixcmp --version {a:.2f} ms, openssl version {b:.2f} ms, ratio {a / b:.2f} "
      f"(medians of {rounds})")
