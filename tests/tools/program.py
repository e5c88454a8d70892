"""What the tests of the program share: a folder of state, the program in it, a served CA."""

import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = os.environ["PKIXCMP_PROGRAM"]
OPENSSL = os.environ.get("OPENSSL_PROGRAM", "openssl")
CA = r"\local\ca"
ROOT = "CN=Test Root, O=Test"


def openssl(*args, check=True, **kwargs):
    done = subprocess.run([OPENSSL, *args], capture_output=True, text=True, **kwargs)
    if check and done.returncode != 0:
        raise AssertionError(f"openssl {' '.join(args)}: {done.stderr}")
    return done


class Home:
    """State and files of one test."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="pkixcmp-test.")
        self.env = dict(os.environ, PKIXCMP_HOME=self.path("home"))

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def run(self, *args, code=0, **kwargs):
        """Runs the program and checks how it ends."""
        kwargs.setdefault("stdin", subprocess.DEVNULL)
        done = subprocess.run([PROGRAM, *args], env=self.env, capture_output=True, timeout=120,
                              **kwargs)
        done.text = done.stdout.decode(errors="replace")
        done.error = done.stderr.decode()
        if code is not None and done.returncode != code:
            raise AssertionError(f"{' '.join(args)}: exit {done.returncode} and not {code}: "
                                 f"{done.error}{done.text[:400]}")
        return done

    def json(self, *args, code=0, **kwargs):
        return json.loads(self.run(*args, "--json", code=code, **kwargs).text)

    def root(self, *more):
        return self.json("root", "new", "--ca", CA, "--subject", ROOT, "--certout",
                         self.path("root.pem"), *more)

    def p10(self, csr, out="request.der", code=0):
        return self.run("p10", "--csr", csr, "--recipient", ROOT, "--reqout", self.path(out),
                        code=code)

    def issue(self, request="request.der", name="issued", code=0, more=()):
        return self.run("issue", "--ca", CA, "--reqin", self.path(request), "--rspout",
                        self.path(name + ".rsp"), "--certout", self.path(name + ".pem"), *more,
                        code=code)

    def verify(self, name):
        said = openssl("verify", "-x509_strict", "-CAfile", self.path("root.pem"), self.path(name))
        assert said.stdout.strip().endswith(": OK"), said.stdout

    def x509(self, name):
        return openssl("x509", "-in", self.path(name), "-noout", "-text", "-nameopt",
                       "utf8,sep_comma_plus_space").stdout

    def serial(self, name):
        return openssl("x509", "-in", self.path(name), "-noout", "-serial").stdout.strip()

    def ec_request(self, name="plain", subject="/CN=Plain"):
        """A PKCS#10 request for a fresh P-256 key."""
        openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                "-keyout", self.path(name + ".key"), "-subj", subject, "-out",
                self.path(name + ".csr"))
        return self.path(name + ".csr")


class ServedCa:
    """`pkixcmp serve` on a free port of loopback."""

    def __init__(self, home, *args):
        self.home = home
        self.log = home.path("serve.log")
        self.process = subprocess.Popen(
            [PROGRAM, "serve", "--ca", CA, "--listen", "127.0.0.1:0", "--log", self.log, *args],
            env=home.env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        match = re.match(r"listening on (http://127\.0\.0\.1:(\d+)/)", line)
        if not match:
            raise AssertionError(f"no server: {line}{self.process.stderr.read()}")
        self.url, self.port = match.group(1), int(match.group(2))

    def enrol(self, *more, code=0, subject="CN=Alice"):
        return self.home.run("enrol", "--server", self.url, "--recipient", ROOT, "--subject",
                             subject, *more, code=code)

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(timeout=60)
        for stream in (self.process.stdout, self.process.stderr):
            stream.close()
        return code

    def lines(self):
        with open(self.log, encoding="utf-8") as file:
            return file.read().splitlines()


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.home = Home()
        self.addCleanup(shutil.rmtree, self.home.folder, ignore_errors=True)

    @contextlib.contextmanager
    def served(self, *args):
        server = ServedCa(self.home, *args)
        try:
            yield server
        finally:
            if server.process.poll() is None:
                self.assertEqual(server.stop(), 0)

    def assertOneLine(self, done, *words):
        """The failure is told in one line that says something."""
        self.assertTrue(done.error.startswith("pkixcmp: "), done.error)
        self.assertEqual(done.error.count("\n"), 1, done.error)
        for word in words:
            self.assertIn(word, done.error)


def wait_until(condition, seconds=20):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.02)
    return False


if __name__ == "__main__":
    sys.exit("this is no test")
