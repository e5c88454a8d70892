"""One enrolment from an empty machine to an installed certificate, judged by OpenSSL."""

import json
import sqlite3
import unittest

from program import CA, ROOT, ProgramTest

SANS = ["--san", "dns:alice.example", "--san", "email:alice@example.org", "--san",
        "uri:http://alice.example/~alice?x=1&y=2", "--san", "ip:192.0.2.7", "--san",
        "ip:2001:db8::7"]


class Enrol(ProgramTest):
    def test_end_to_end_and_again(self):
        self.home.root()
        root = self.home.x509("root.pem")
        self.assertIn("CA:TRUE", root)
        self.assertIn("Certificate Sign, CRL Sign", root)
        with self.served("--approve", "all") as ca:
            for name in ("one.pem", "two.pem"):
                done = ca.enrol(*SANS, "--key-usage", "digitalSignature,keyAgreement", "--trust",
                                "root.pem", "--config", r"\local\alice", "--certout", name)
                self.assertEqual(done.error, "")
                self.check(name)
            self.assertNotEqual(self.home.serial("one.pem"), self.home.serial("two.pem"))
            self.check_installed("two.pem")
        self.assertEqual(sum("result=issued" in line for line in ca.lines()), 2)

    def check(self, name):
        self.home.verify(name)
        text = self.home.x509(name)
        for words in ("Subject: CN=Alice", "Issuer: CN=Test Root, O=Test",
                      "DNS:alice.example, email:alice@example.org, "
                      "URI:http://alice.example/~alice?x=1&y=2, IP Address:192.0.2.7, "
                      "IP Address:2001:DB8:0:0:0:0:0:7",
                      "Digital Signature, Key Agreement", "X509v3 Subject Key Identifier",
                      "X509v3 Authority Key Identifier"):
            self.assertIn(words, text)

    def check_installed(self, name):
        """The certificate stands in My beside its key, and under the configuration path."""
        self.home.openssl("x509", "-in", name, "-outform", "DER", "-out", "der")
        value = self.home.run("config", "get", r"\local\alice\cert").text.strip()
        self.assertEqual(bytes.fromhex(value), self.home.read("der"))
        serial = int(self.home.serial(name), 16)
        mine = self.home.json("store", "ls", "My")
        (container,) = [e["container"] for e in mine if int(e["serial"], 16) == serial]
        containers = {c["container"]: c for c in self.home.json("container", "ls")}
        self.assertTrue(containers[container]["certificate"])
        self.assertEqual(self.home.json("store", "ls", "Request"), [])

    def test_kinds_of_keys(self):
        self.home.root()
        kinds = {"75": "prime256v1", "80": "(3072 bit)", "81": "secp384r1", "1": "rsaEncryption",
                 "16": "prime256v1"}
        with self.served("--approve", "all") as ca:
            for kind, words in kinds.items():
                with self.subTest(kind=kind):
                    ca.enrol("--provider-type", kind, "--trust", "root.pem", "--certout", "k.pem")
                    self.home.verify("k.pem")
                    self.assertIn(words, self.home.x509("k.pem"))

    def test_without_trust_it_warns(self):
        self.home.root()
        with self.served("--approve", "all") as ca:
            done = ca.enrol("--json")
        self.assertIn("warning", done.error)
        self.assertEqual(done.error.count("\n"), 1)
        self.assertFalse(json.loads(done.text)["checked"])

    def assert_nothing_left(self):
        """A failed enrolment leaves neither key nor template nor certificate."""
        self.assertEqual(self.home.json("store", "ls", "Request"), [])
        mine = self.home.json("store", "ls", "My")
        self.assertEqual([e["subject"] for e in mine], [ROOT])
        self.assertEqual(len(self.home.json("container", "ls")), 1)

    def test_failures_leave_nothing(self):
        self.home.root()
        self.home.request("-x509", name="foreign.pem", subject="/O=Test/CN=Test Root")
        with self.served("--approve", "all") as ca:
            self.assertOneLine(ca.enrol("--trust", "foreign.pem", code=1), "not signed")
            self.assert_nothing_left()
        with self.served() as ca:
            self.assertOneLine(ca.enrol(code=1), "rejection", "badRequest", "approves no request")
            self.assert_nothing_left()
            self.assertIn("result=rejected", ca.lines()[-1])
        self.assertOneLine(ca.enrol(code=1), ca.url, "is the CA running")
        self.assert_nothing_left()
        self.assertOneLine(ca.enrol("--config", "alice", code=2), "--config")
        self.assert_nothing_left()

    def test_root_is_not_overwritten(self):
        self.home.root()
        before = self.home.read("root.pem")
        done = self.home.run("root", "new", "--ca", CA, "--subject", "CN=Other", code=1)
        self.assertOneLine(done, "--replace")
        self.home.root("--replace")
        self.assertNotEqual(self.home.read("root.pem"), before)

    def test_root_options(self):
        self.home.root("--valid", "520w", "--not-before", "2026-01-02T03:04:05Z", "--cdp",
                       "http://ca.example/crl?ca=1&form=<der>", "--name", "Корень")
        text = self.home.x509("root.pem")
        self.assertIn("Not Before: Jan  2 03:04:05 2026 GMT", text)
        self.assertIn("Not After : Dec 21 03:04:05 2035 GMT", text)
        self.assertIn("URI:http://ca.example/crl?ca=1&form=<der>", text)
        self.assertEqual(self.home.json("config", "get", CA + r"\caname")["value"], "Корень")
        self.home.p10(self.home.request())
        self.home.issue()
        self.assertIn("URI:http://ca.example/crl?ca=1&form=<der>", self.home.x509("issued.pem"))

    def test_a_root_that_fails_leaves_no_certificate_without_its_key(self):
        """Also when the machine's store takes no more, behind the user's."""
        self.home.root()
        with sqlite3.connect(self.home.path("home/machine/pkixcmp.db")) as machine:
            machine.execute("CREATE TRIGGER full BEFORE INSERT ON objects BEGIN "
                            "SELECT RAISE(ABORT, 'full'); END")
        machine.close()
        self.home.run("root", "new", "--ca", r"\local\late", "--subject", "CN=Late", code=1)
        containers = {c["container"] for c in self.home.json("container", "ls")}
        self.assertEqual({e["container"] for e in self.home.json("store", "ls", "My")}, containers)

    def test_days_end_with_the_ca(self):
        self.home.root("--valid", "30d")
        self.home.p10(self.home.request())
        for days, same in (("10", False), ("90", True)):
            self.home.issue("--days", days)
            self.home.verify("issued.pem")
            ends = {self.home.x509(name, "-enddate") for name in ("root.pem", "issued.pem")}
            self.assertEqual(len(ends) == 1, same, days)

    def test_a_ca_whose_time_is_over_issues_nothing(self):
        self.home.root("--not-before", "2020-01-01T00:00:00Z", "--valid", "30d")
        self.home.p10(self.home.request())
        self.assertOneLine(self.home.issue(code=1), "2020-01-31T00:00:00Z", "new root")


if __name__ == "__main__":
    unittest.main()
