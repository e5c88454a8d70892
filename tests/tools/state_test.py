"""The commands over the configuration tree, the stores and the containers."""

import os
import unittest

from program import CA, ROOT, ProgramTest


class State(ProgramTest):
    def test_config(self):
        values = [("string", "текст с пробелами", "текст с пробелами"), ("long", "-5", -5),
                  ("long", "010", 10), ("long", "0x10", 16),
                  ("long long", "9000000000000", 9000000000000),
                  ("bool", "true", True), ("binary", "00ff10", "00ff10"), ("string", "", "")]
        for kind, given, expected in values:
            with self.subTest(type=kind, value=given):
                self.home.run("config", "set", "--type", kind, "--", r"\local\test\v", given)
                got = self.home.json("config", "get", r"\local\test\v")
                self.assertEqual((got["type"], got["value"]), (kind, expected))
        self.home.run("config", "set", r"\local\test\sub\w", "1")
        listed = self.home.json("config", "ls", r"\local\test")
        self.assertEqual({(x["path"], x["type"]) for x in listed},
                         {(r"\local\test\v", "string"), (r"\local\test\sub", "key")})
        self.home.run("config", "rm", r"\local\test\v")
        for args in (("get", r"\local\test\v"), ("rm", r"\local\test\v")):
            self.assertOneLine(self.home.run("config", *args, code=1), "no value")
        for path in ("v", "\\", r"\v", "\\local\\", ""):
            self.home.run("config", "get", path, code=2)
        for kind, value in (("long", "x"), ("bool", "yes"), ("binary", "0g"), ("binary", "123")):
            self.assertOneLine(self.home.run("config", "set", r"\local\t\v", value, "--type", kind,
                                             code=2))

    def test_stores(self):
        root = self.home.root()
        self.home.request("-x509", "-set_serial", "0x80ab", name="other.pem", subject="/CN=Other")
        sha1 = self.home.x509("other.pem", "-sha1", "-fingerprint").strip().split("=")[1]
        self.assertEqual(self.home.json("store", "ls", "Trust"), [])
        self.home.write("b.pem", self.home.read("root.pem") + self.home.read("other.pem"))
        for _ in range(2):  # adding again changes nothing
            self.home.run("store", "add", "Trust", "b.pem")
        listed = self.home.json("store", "ls", "Trust")
        self.assertEqual([(x["subject"], x["serial"]) for x in listed],
                         [(ROOT, root["serial"]), ("CN=Other", "0x080ab")])
        self.assertEqual(listed[1]["sha1"], sha1.replace(":", "").lower())
        self.assertIn("Trust", self.home.json("store", "ls"))
        for args in ((), ("--all", "--serial", "1")):
            self.home.run("store", "rm", "Trust", *args, code=2)
        self.assertOneLine(self.home.run("store", "rm", "Trust", "--serial", "0x1", code=1),
                           "no such object")
        self.home.run("store", "rm", "Trust", "--sha1", sha1)
        self.assertEqual(self.home.json("store", "ls", "Trust"), listed[:1])
        self.home.run("store", "rm", "Trust", "--serial", root["serial"])
        self.assertEqual(self.home.json("store", "ls", "Trust"), [])
        self.assertOneLine(self.home.run("store", "rm", "NoStore", "--all", code=1), "NoStore")
        garbage = self.home.write("garbage", b"0\x03abc")
        self.assertOneLine(self.home.run("store", "add", "Trust", garbage, code=1))

    def test_sides_of_a_store(self):
        self.home.root()
        self.home.run("store", "add", "CA", "root.pem", "--machine")
        self.assertEqual(len(self.home.json("store", "ls", "CA", "--machine")), 1)
        self.assertEqual(len(self.home.json("store", "ls", "CA")), 1, "the user sees both sides")
        self.home.run("store", "rm", "CA", "--all", "--machine")
        self.assertEqual(self.home.json("store", "ls", "CA"), [])
        # The root of a new CA is trusted by the machine.
        machine = self.home.json("store", "ls", "Root", "--machine")
        self.assertEqual([x["subject"] for x in machine], [ROOT])

    def test_crls_in_stores(self):
        self.home.write("c.cnf", "[ca]\ndefault_ca=l\n[l]\ndatabase=index\ndefault_md=sha256\n"
                                 "default_crl_days=9\n")
        self.home.write("index", "")
        self.home.request("-x509", name="i.pem", subject="/CN=CRL Issuer", key=["rsa:2048"])
        self.home.openssl("ca", "-config", "c.cnf", "-gencrl", "-cert", "i.pem", "-keyfile",
                          "i.pem.key", "-out", "crl.pem")
        self.home.openssl("crl", "-in", "crl.pem", "-outform", "DER", "-out", "crl.der")
        for name in ("crl.pem", "crl.der"):
            self.home.run("store", "add", "CA", name)
            listed = self.home.json("store", "ls", "CA")
            self.assertEqual([(x["kind"], x["issuer"]) for x in listed], [("crl", "CN=CRL Issuer")])
            self.home.run("store", "rm", "CA", "--sha1", listed[0]["sha1"])
            self.assertEqual(self.home.json("store", "ls", "CA"), [])

    def test_containers(self):
        readers = {r["reader"] for r in self.home.json("container", "ls", "--readers")}
        self.assertEqual(readers, {"DISK", "VAULT"})
        self.assertEqual(self.home.json("container", "ls"), [])
        made = self.home.root("--container", "test")
        self.assertEqual(made["container"], r"\\.\VAULT\test")
        listed = self.home.json("container", "ls")
        self.assertEqual([(c["container"], c["providerType"], c["protection"], c["key"],
                           c["certificate"]) for c in listed],
                         [(r"\\.\VAULT\test", 75, "provider", "signature", True)])
        done = self.home.run("root", "new", "--ca", r"\local\ca2", "--subject", "CN=B",
                             "--container", r"\\.\VAULT\test", code=1)
        self.assertOneLine(done, "exists already")
        self.home.run("container", "rm", r"\\.\VAULT\test")
        self.assertEqual(self.home.json("container", "ls"), [])
        for command in ("rm", "passwd"):
            self.assertOneLine(self.home.run("container", command, r"\\.\VAULT\test", code=1),
                               "no such container")
        self.home.p10(self.home.request())
        self.assertOneLine(self.home.issue(code=1), CA)

    def test_damaged_container_is_shown_and_removed(self):
        self.home.root("--container", "test")
        for folder, _, files in os.walk(self.home.path("home")):
            if os.path.basename(folder) == "test" and "header" in files:
                os.truncate(os.path.join(folder, "header"), 10)
        self.assertEqual([c["state"] for c in self.home.json("container", "ls")], ["damaged"])
        self.home.run("container", "rm", r"\\.\VAULT\test")
        self.assertEqual(self.home.json("container", "ls"), [])

    def test_damaged_state_is_no_empty_state(self):
        self.home.root()
        for folder, _, files in os.walk(self.home.path("home")):
            for name in files:
                if ".db" in name:
                    self.home.write(os.path.join(folder, name), b"no database" * 1000)
        for args in (["store", "ls"], ["store", "ls", "My"], ["config", "ls", r"\local"]):
            self.assertOneLine(self.home.run(*args, code=1))


if __name__ == "__main__":
    unittest.main()
