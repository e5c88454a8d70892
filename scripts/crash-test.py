#!/usr/bin/env python3
"""Kills the program at random moments and checks what is left.

    scripts/crash-test.py PROGRAM [--enrolments 200] [--issues 200] [--seed N]

Enrols against a served CA and issues offline, each time killing the program (and now and then the
server) with SIGKILL after a random delay. After every kill settings, stores and containers must
read; at the end no serial number may have been given twice, every certificate in "My" must have its
key, and a plain enrolment must work. Prints one line a hundred rounds and a summary."""

import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time


def fail(text):
    print("FAILED:", text)
    sys.exit(1)


class Crash:
    def __init__(self, program, folder, rng):
        self.program = os.path.abspath(program)
        self.folder = folder
        self.rng = rng
        self.env = dict(os.environ, PKIXCMP_HOME=os.path.join(folder, "home"))
        self.server = None
        self.url = None
        self.serials = {}
        self.killed = 0
        self.finished = 0

    def run(self, *args, check=True):
        done = subprocess.run([self.program, *args], env=self.env, capture_output=True, text=True)
        if check and done.returncode != 0:
            fail(f"{' '.join(args)}: exit {done.returncode}: {done.stderr.strip()}")
        return done

    def path(self, name):
        return os.path.join(self.folder, name)

    def start_server(self):
        out = open(self.path("serve.out"), "w+")
        self.server = subprocess.Popen(
            [self.program, "serve", "--ca", r"\local\ca", "--listen", "127.0.0.1:0", "--approve",
             "all", "--log", self.path("serve.log")], env=self.env, stdout=out)
        for _ in range(200):
            match = re.search(r"listening on (\S+)", open(self.path("serve.out")).read())
            if match:
                self.url = match.group(1)
                return
            if self.server.poll() is not None:
                break
            time.sleep(0.05)
        fail("the server does not start after a crash")

    def kill_server(self):
        self.server.send_signal(signal.SIGKILL)
        self.server.wait()

    def killed_run(self, args, longest):
        """Runs with a random life span; true when it ended by itself."""
        child = subprocess.Popen([self.program, *args], env=self.env, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)
        try:
            child.wait(self.rng.uniform(0, longest))
            self.finished += 1
            return True
        except subprocess.TimeoutExpired:
            child.kill()
            child.wait()
            self.killed += 1
            return False

    def measure(self, args):
        begin = time.monotonic()
        self.run(*args)
        return time.monotonic() - begin

    def readable(self):
        self.run("config", "ls", r"\local\ca", "--json")
        self.run("container", "ls", "--json")
        for store in ("My", "Request", "Root"):
            self.run("store", "ls", store, "--json")

    def note_serial(self, file):
        if not os.path.exists(file):
            return
        shown = subprocess.run(["openssl", "x509", "-in", file, "-noout", "-serial",
                                "-fingerprint", "-sha256"], capture_output=True, text=True)
        if shown.returncode != 0:
            fail(f"{file} is no whole certificate")
        serial, fingerprint = shown.stdout.split("\n")[:2]
        if self.serials.setdefault(serial, fingerprint) != fingerprint:
            fail(f"{serial} was given twice")

    def enrol_args(self, number):
        return ["enrol", "--server", self.url, "--recipient", "CN=Crash Root", "--subject",
                f"CN=Client {number}", "--certout", self.path(f"enrol-{number}.pem"), "--config",
                rf"\local\client{number}"]

    def enrolments(self, count):
        longest = 1.2 * self.measure(self.enrol_args("timing"))
        for number in range(count):
            if number % 20 == 19:
                self.kill_server()
                self.start_server()
            self.killed_run(self.enrol_args(number), longest)
            self.note_serial(self.path(f"enrol-{number}.pem"))
            self.readable()
            if number % 100 == 99:
                print(f"{number + 1} enrolments, {self.killed} killed", flush=True)

    def issue_args(self, number):
        return ["issue", "--ca", r"\local\ca", "--reqin", self.path("p10.der"), "--rspout",
                self.path(f"issue-{number}.rsp"), "--certout", self.path(f"issue-{number}.pem")]

    def issues(self, count):
        subprocess.run(["openssl", "req", "-new", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-keyout", self.path("p10.key"),
                        "-subj", "/CN=Offline", "-out", self.path("p10.csr")], check=True,
                       capture_output=True)
        self.run("p10", "--csr", self.path("p10.csr"), "--recipient", "CN=Crash Root", "--reqout",
                 self.path("p10.der"))
        longest = 1.2 * self.measure(self.issue_args("timing"))
        for number in range(count):
            self.killed_run(self.issue_args(number), longest)
            self.note_serial(self.path(f"issue-{number}.pem"))
            self.readable()
            if number % 100 == 99:
                print(f"{number + 1} issues, {self.killed} killed in all", flush=True)

    def no_certificate_without_key(self):
        listed = json.loads(self.run("store", "ls", "My", "--json").stdout)
        containers = json.dumps(json.loads(self.run("container", "ls", "--json").stdout))
        serials = {}
        for item in listed:
            container = item.get("container", "")
            if not container or json.dumps(container)[1:-1] not in containers:
                fail(f"{item.get('subject')} stands in My without its key: {item}")
            key = (item.get("issuer"), item.get("serial"))
            if serials.setdefault(key, item.get("sha1")) != item.get("sha1"):
                fail(f"serial number {key} twice in My")
        return len(listed)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("--enrolments", type=int, default=200)
    parser.add_argument("--issues", type=int, default=200)
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    options = parser.parse_args()
    print("seed", options.seed, flush=True)
    folder = tempfile.mkdtemp(prefix="pkixcmp-crash.")
    crash = Crash(options.program, folder, random.Random(options.seed))
    crash.run("root", "new", "--ca", r"\local\ca", "--subject", "CN=Crash Root", "--certout",
              crash.path("root.pem"))
    crash.start_server()
    try:
        crash.enrolments(options.enrolments)
        crash.issues(options.issues)
        installed = crash.no_certificate_without_key()
        crash.run(*crash.enrol_args("last"))
        subprocess.run(["openssl", "verify", "-CAfile", crash.path("root.pem"),
                        crash.path("enrol-last.pem")], check=True)
    finally:
        crash.kill_server()
    print(f"{crash.killed} killed, {crash.finished} finished, {installed} certificates in My all "
          f"with their keys, {len(crash.serials)} serial numbers seen, none twice")
    shutil.rmtree(folder)


main()
