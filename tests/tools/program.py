"""What the tests of the program share: a folder of state, the program in it, a served CA."""

import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

PROGRAM = os.environ["PKIXCMP_PROGRAM"]
OPENSSL = os.environ.get("OPENSSL_PROGRAM", "openssl")
CA = r"\local\ca"
ROOT = "CN=Test Root, O=Test"
P256 = ["ec", "-pkeyopt", "ec_paramgen_curve:P-256"]


class Home:
    """State and files of one test. All programs run in its folder."""

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
                              cwd=self.folder, **kwargs)
        done.text = done.stdout.decode(errors="replace")
        done.error = done.stderr.decode()
        if code is not None and done.returncode != code:
            raise AssertionError(f"{' '.join(args)}: exit {done.returncode} and not {code}: "
                                 f"{done.error}{done.text[:400]}")
        return done

    def json(self, *args, **kwargs):
        return json.loads(self.run(*args, "--json", **kwargs).text)

    def show(self, name):
        return self.json("show", name)[0]["value"]

    def root(self, *more):
        return self.json("root", "new", "--ca", CA, "--subject", ROOT, "--certout", "root.pem",
                         *more)

    def p10(self, csr, *more, **kwargs):
        return self.run("p10", "--csr", csr, "--recipient", ROOT, "--reqout", "request.der", *more,
                        **kwargs)

    def issue(self, *more, name="issued", **kwargs):
        return self.run("issue", "--ca", CA, "--reqin", "request.der", "--rspout", name + ".rsp",
                        "--certout", name + ".pem", *more, **kwargs)

    def openssl(self, *args, check=True):
        done = subprocess.run([OPENSSL, *args], capture_output=True, text=True, cwd=self.folder)
        if check and done.returncode != 0:
            raise AssertionError(f"openssl {' '.join(args)}: {done.stderr}")
        return done.stdout

    def request(self, *more, name="csr", subject="/CN=Plain", key=P256):
        """A PKCS#10 request for a fresh key; with -x509 a certificate that signs itself."""
        self.openssl("req", "-new", "-utf8", "-newkey", *key, "-nodes", "-keyout", name + ".key",
                     "-subj", subject, "-out", name, *more)
        return name

    def verify(self, name):
        said = self.openssl("verify", "-x509_strict", "-CAfile", "root.pem", name)
        assert said.strip().endswith(": OK"), said

    def x509(self, name, *what):
        return self.openssl("x509", "-in", name, "-noout", *(
            what or ["-text", "-nameopt", "utf8,sep_comma_plus_space"]))

    def serial(self, name):
        return self.x509(name, "-serial").strip().split("=")[1]


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

    def enrol(self, *more, **kwargs):
        return self.home.run("enrol", "--server", self.url, "--recipient", ROOT, "--subject",
                             "CN=Alice", *more, **kwargs)

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
