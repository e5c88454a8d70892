"""Exit codes, one-line failures, --json and --help over all commands."""

import json
import os
import resource
import subprocess
import unittest

from program import CA, PROGRAM, ProgramTest

COMMANDS = [["root", "new"], ["serve"], ["enrol"], ["p10"], ["issue"], ["reject"], ["show"],
            ["config", "get"], ["config", "set"], ["config", "ls"], ["config", "rm"],
            ["store", "ls"], ["store", "add"], ["store", "rm"], ["container", "ls"],
            ["container", "rm"], ["container", "passwd"]]
ROOT_NEW = ["root", "new", "--ca", CA, "--subject", "CN=A"]
ENROL = ["enrol", "--server", "http://127.0.0.1:1/", "--recipient", "CN=R", "--subject", "CN=A"]


class Usage(ProgramTest):
    def test_help_of_every_command(self):
        for command in [[], *COMMANDS]:
            done = self.home.run(*command, "--help")
            self.assertEqual(done.error, "")
            self.assertIn("Examples:" if command else "Exit codes", done.text, command)

    def test_version(self):
        for args in (["--version"], ["-V"], ["--json", "--version"]):
            self.assertRegex(self.home.run(*args).text, r"^pkixcmp \d+\.\d+\.\d+\n$")
        self.assertFalse(os.path.exists(self.home.path("home")), "asking made state")

    def test_usage_errors(self):
        cases = [
            [], ["nonsense"], ["root"], ["root", "new"], ["--nonsense"], ["show"],
            [*ROOT_NEW, "--valid", "10"], [*ROOT_NEW, "--valid", "d"], [*ROOT_NEW, "--valid", "0d"],
            [*ROOT_NEW, "--valid", "99999999999y"], [*ROOT_NEW, "--valid", "100y"],
            [*ROOT_NEW, "--not-before", "tomorrow"],
            [*ROOT_NEW, "--not-before", "2026-02-30T00:00:00Z"],
            [*ROOT_NEW, "--crl-period", "-1d"],
            [*ROOT_NEW, "--reader", "VAULT", "--pin", "pass:1234"],
            [*ROOT_NEW, "--container", r"\\.\DISK\a", "--reader", "VAULT"],
            ["root", "new", "--ca", CA, "--subject", "Alice"],
            ["root", "new", "--ca", CA, "--subject", ""],
            ["root", "new", "--ca", CA, "--subject", "CN=A, O"],
            [*ENROL, "--san", "alice.example"], [*ENROL, "--san", "dns:"],
            [*ENROL, "--san", "dns:пример.рф"], [*ENROL, "--san", "ip:1.2.3"],
            [*ENROL, "--key-usage", "everything"], [*ENROL, "--provider-type", "1", "--reader", "X"],
            [*ENROL, "--key-bits", "2048"], [*ENROL, "--provider-type", "1", "--key-bits", "1024"],
            [*ENROL, "--provider-type", "16", "--key-bits", "38"],
            [*ENROL, "--trust", ""], [*ROOT_NEW, "--pin", ""], [*ROOT_NEW, "--cdp", "список"],
            ["issue", "--ca", CA, "--reqin", "x", "--rspout", "y", "--certout", "y"],
            [*ENROL, "--provider-type", "1", "--key-bits", "-1"],
            ["config", "ls", "local"], ["config", "set", r"\a\b", "1x", "--type", "long"],
            ["serve", "--ca", CA, "--listen", "127.0.0.1:99999"],
            ["serve", "--ca", CA, "--listen", "127.0.0.1:http"],
            *([*command, "--ca", path] for path in ("", "local", "\\", CA + "\\")
              for command in (["root", "new", "--subject", "CN=A"], ["serve"])),
            [*ENROL, "--config", "local"], [*ENROL, "--config", "\\"],
            ["serve", "--ca", CA, "--listen", "8829"], ["serve", "--ca", CA, "--approve", "some"],
            ["serve", "--ca", CA, "--threads", "0"], ["serve", "--ca", CA, "--max-body", "0"],
            ["show", "--format", "yaml", "x"], ["issue", "--ca", CA, "--days", "-1"],
        ]
        for args in cases:
            with self.subTest(args=args):
                done = self.home.run(*args, code=2)
                self.assertOneLine(done)
                self.assertEqual(done.text, "")
        self.assertEqual(self.home.json("container", "ls"), [], "a bad call made a key")

    def test_failures(self):
        missing = self.home.path("missing")
        self.home.write("no.csr", b"\x30\x00")
        cases = [
            ["show", missing], ["show", self.home.folder], ["store", "add", "CA", missing],
            ["issue", "--ca", CA, "--reqin", missing, "--rspout", "x"],
            ["p10", "--csr", missing, "--recipient", "CN=A", "--reqout", "x"],
            ["p10", "--csr", self.home.path("no.csr"), "--recipient", "CN=A", "--reqout", "x"],
            [*ENROL, "--trust", missing], ENROL, [*ENROL[:2], "no url", *ENROL[3:]],
            [*ROOT_NEW, "--reader", "NONE", "--pin", "pass:1234"],
            [*ROOT_NEW, "--container", "a/b"], [*ROOT_NEW, "--provider-type", "33"],
            ["config", "get", r"\local\nothing\here"],
        ]
        for args in cases:
            with self.subTest(args=args):
                self.assertOneLine(self.home.run(*args, code=1))
        self.assertEqual(self.home.json("container", "ls"), [], "a failure left its key")
        self.home.root()
        self.assertOneLine(self.home.run(*ENROL, "--config", CA, code=1), "path of a CA")

    def test_failures_as_json(self):
        for args, code in (([*ENROL], 1), (["show"], 2), (["config", "get", r"\a\b"], 1)):
            done = self.home.run(*args, "--json", code=code)
            told = json.loads(done.text)
            self.assertEqual(told["exit"], code)
            self.assertEqual(done.error, f"pkixcmp: {told['error']}\n")

    def test_verbose_shows_the_full_text(self):
        self.home.root()
        args = ["root", "new", "--ca", r"\local\b", "--subject", "CN=B", "--container", "a/b"]
        short = self.home.run(*args, code=1).error
        full = self.home.run(*args, "-v", code=1).error
        self.assertTrue(full.startswith(short))
        self.assertIn("CryptException", full)
        self.assertIn("line:", full)

    def test_unwritable_outputs(self):
        """What cannot be written is told before a key is made."""
        p10 = ["p10", "--csr", self.home.request(), "--recipient", "CN=A", "--reqout"]
        for args in (p10, [*ROOT_NEW, "--certout"], [*ENROL, "--certout"], [*ENROL, "--rspout"]):
            for path in (self.home.path("no/such/folder"), self.home.folder):
                self.assertOneLine(self.home.run(*args, path, code=1), "cannot write", path)
        self.assertEqual(self.home.json("container", "ls"), [])
        self.home.root()
        with open("/dev/full", "wb") as full:
            said = subprocess.run([PROGRAM, "show", self.home.path("root.pem")], stdout=full,
                                  stderr=subprocess.PIPE, env=self.home.env, check=False)
            self.assertEqual(said.returncode, 1)
        limits = (resource.RLIMIT_FSIZE, (0, 0))
        said = subprocess.run([PROGRAM, "config", "set", r"\local\a\b", "1"], env=self.home.env,
                              stderr=subprocess.PIPE, check=False,
                              preexec_fn=lambda: resource.setrlimit(*limits))
        self.assertEqual(said.returncode, 1, "a file that may not grow kills the program")
        nowhere = {**self.home.env, "PKIXCMP_HOME": "/dev/null/home"}
        said = subprocess.run([PROGRAM, *ROOT_NEW], env=nowhere, capture_output=True, check=False)
        self.assertEqual(said.returncode, 1)
        self.assertIn(b"PKIXCMP_HOME", said.stderr)

    def test_outputs_that_are_no_files(self):
        """A pipe is written to and never replaced; a link stays; an object alone is on stdout."""
        p10 = ["p10", "--csr", self.home.request(), "--recipient", "CN=A", "--json", "--reqout"]
        pipe, link, told = (self.home.path(name) for name in ("pipe", "link", "told"))
        os.mkfifo(pipe)
        with subprocess.Popen(["cat", pipe], stdout=subprocess.PIPE) as reader:
            self.home.run(*p10, pipe)
            self.home.write("told", reader.stdout.read())
        self.assertEqual(self.home.json("show", told)[0]["type"], "PKIMessage")
        os.symlink(told, link)
        self.home.run(*p10, link)
        self.assertTrue(os.path.islink(link))
        done = self.home.run(*p10, "-")
        self.assertEqual(json.loads(done.error)["request"], "-")
        self.home.write("told", done.stdout)
        self.assertEqual(self.home.json("show", told)[0]["type"], "PKIMessage")


if __name__ == "__main__":
    unittest.main()
