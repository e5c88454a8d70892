"""What `show` reads, writes again byte for byte, and says of what it cannot read."""

import json
import os
import unittest

from program import ProgramTest, openssl

CONFIG = """
[req]
distinguished_name = dn
prompt = no
[dn]
C = RU
O = "Ромашка & <sons>"
CN = Show
[exts]
subjectKeyIdentifier = hash
basicConstraints = critical,CA:TRUE,pathlen:3
keyUsage = critical,keyCertSign,cRLSign
extendedKeyUsage = serverAuth,1.2.3.4
subjectAltName = DNS:a.example,email:b@c.example,URI:http://d/?a&b,IP:192.0.2.1,dirName:dn,RID:1.2.3
crlDistributionPoints = URI:http://d/crl
authorityInfoAccess = OCSP;URI:http://d/ocsp
certificatePolicies = 1.2.3.4,@policy
nameConstraints = permitted;DNS:.example,excluded;email:x.example
1.2.3.4.5 = ASN1:UTF8String:unknown
[policy]
policyIdentifier = 1.3.5.7
CPS.1 = http://d/cps
userNotice.1 = @notice
[notice]
explicitText = UTF8:Условия
[ca]
default_ca = local
[local]
database = index.txt
crlnumber = crlnumber
default_md = sha256
default_crl_days = 30
crl_extensions = crlexts
[crlexts]
authorityKeyIdentifier = keyid
"""


class Show(ProgramTest):
    def make(self):
        """A certificate, a CRL, a request and a public key by OpenSSL, as DER."""
        home = self.home
        home.write("openssl.cnf", CONFIG)
        config = ["-config", home.path("openssl.cnf")]
        openssl("req", *config, "-x509", "-utf8", "-newkey", "ec", "-pkeyopt",
                "ec_paramgen_curve:P-256", "-nodes", "-keyout", home.path("key.pem"), "-extensions",
                "exts", "-out", home.path("cert.pem"))
        openssl("req", *config, "-new", "-utf8", "-key", home.path("key.pem"), "-reqexts", "exts",
                "-out", home.path("csr.pem"))
        home.write("index.txt", "R\t301231235959Z\t260101000000Z,keyCompromise\t01\tunknown\t/CN=a\n"
                                "R\t301231235959Z\t260101000000Z\t02AB\tunknown\t/CN=b\n")
        home.write("crlnumber", "1000\n")
        openssl("ca", *config, "-gencrl", "-cert", home.path("cert.pem"), "-keyfile",
                home.path("key.pem"), "-out", home.path("crl.pem"), cwd=home.folder)
        for kind, name in (("x509", "cert"), ("req", "csr"), ("crl", "crl")):
            openssl(kind, "-in", home.path(name + ".pem"), "-outform", "DER", "-out",
                    home.path(name + ".der"))
        openssl("pkey", "-in", home.path("key.pem"), "-pubout", "-outform", "DER", "-out",
                home.path("key.der"))

    TYPES = {"cert.der": "Certificate", "crl.der": "CertificateList",
             "csr.der": "CertificationRequest", "key.der": "SubjectPublicKeyInfo",
             "request.der": "PKIMessage", "issued.rsp": "PKIMessage"}

    def messages(self):
        self.home.root()
        self.home.p10(self.home.ec_request())
        self.home.issue()

    def test_found_by_itself_and_round_trip(self):
        self.make()
        self.messages()
        for name, kind in self.TYPES.items():
            with self.subTest(file=name):
                path = self.home.path(name)
                shown = self.home.json("show", path)
                self.assertEqual([(x["file"], x["type"]) for x in shown], [(path, kind)])
                xer = self.home.run("show", path).text
                self.assertTrue(xer.startswith(f"<{kind}>") and xer.endswith(f"</{kind}>\n"))
                self.assertEqual(self.home.run("show", "--format", "der", path).stdout,
                                 self.home.read(name))
                pem = self.home.run("show", "--format", "pem", path).stdout
                self.home.write("again.pem", pem)
                again = self.home.run("show", "--format", "der", "--as", kind,
                                      self.home.path("again.pem"))
                self.assertEqual(again.stdout, self.home.read(name))

    def test_pem_is_openssls(self):
        self.make()
        for name in ("cert", "crl", "csr"):
            shown = self.home.run("show", "--format", "pem", self.home.path(name + ".der"))
            self.assertEqual(shown.stdout, self.home.read(name + ".pem"), name)

    def test_parts_of_messages(self):
        """A part cut out of a message, found by its place in OpenSSL's dump."""
        self.messages()
        path = self.home.path("issued.rsp")
        places = [line.split(":") for line in openssl(
            "asn1parse", "-inform", "DER", "-in", path).stdout.splitlines()]
        header = next(p for p in places if "d=1 " in p[1])
        openssl("asn1parse", "-inform", "DER", "-in", path, "-strparse", header[0].strip(), "-out",
                self.home.path("header.der"), check=False)
        if not os.path.exists(self.home.path("header.der")):
            self.skipTest("this openssl cuts no parts out")
        shown = self.home.json("show", self.home.path("header.der"))
        self.assertEqual(shown[0]["type"], "PKIHeader")

    def test_json_says_what_openssl_says(self):
        self.make()
        tree = self.home.json("show", self.home.path("cert.der"))[0]["value"]
        serial = openssl("x509", "-in", self.home.path("cert.pem"), "-noout", "-serial").stdout
        self.assertEqual(int(tree["tbsCertificate"]["serialNumber"]), int(serial[7:], 16))
        extensions = {e["extnID"]: e["extnValue"] for e in tree["tbsCertificate"]["extensions"]}
        self.assertEqual(extensions["2.5.29.15"], {"KeyUsage": ["keyCertSign", "cRLSign"]})
        self.assertEqual(extensions["2.5.29.19"],
                         {"BasicConstraintsSyntax": {"cA": True, "pathLenConstraint": "3"}})
        names = extensions["2.5.29.17"]["SubjectAltName"]
        self.assertEqual([list(n)[0] for n in names],
                         ["dNSName", "rfc822Name", "uniformResourceIdentifier", "iPAddress",
                          "directoryName", "registeredID"])
        self.assertEqual(names[2]["uniformResourceIdentifier"], "http://d/?a&b")
        self.assertIn("Ромашка & <sons>", json.dumps(tree, ensure_ascii=False))
        crl = self.home.json("show", self.home.path("crl.der"))[0]["value"]
        revoked = crl["tbsCertList"]["revokedCertificates"]
        self.assertEqual([r["userCertificate"] for r in revoked], ["1", str(0x2AB)])

    def test_bundles_and_several_files(self):
        self.make()
        bundle = self.home.write("bundle.pem", b"# three objects\n" + self.home.read("cert.pem") +
                                 b"\ntext\n" + self.home.read("crl.pem") +
                                 self.home.read("cert.pem"))
        shown = self.home.json("show", bundle, self.home.path("csr.der"))
        self.assertEqual([x["type"] for x in shown], ["Certificate", "CertificateList",
                                                      "Certificate", "CertificationRequest"])
        der = self.home.run("show", "--format", "der", bundle).stdout
        self.assertEqual(der, self.home.read("cert.der") + self.home.read("crl.der") +
                         self.home.read("cert.der"))
        with open(bundle, "rb") as file:
            piped = self.home.run("show", "-", stdin=file)
        self.assertEqual(piped.text.count("\n"), 3)

    def test_armour_of_other_hands(self):
        self.make()
        lines = self.home.read("cert.pem").decode().splitlines()
        texts = {"headers": [lines[0], "Proc-Type: x", "", *lines[1:]],
                 "a text before": ["0 is its number", *lines], "as it is": lines}
        for name, text in texts.items():
            for end in ("\n", "\r\n"):
                with self.subTest(text=name, end=end):
                    self.home.write("x.pem", end.join([*text, ""]))
                    shown = self.home.run("show", "--format", "der", self.home.path("x.pem"))
                    self.assertEqual(shown.stdout, self.home.read("cert.der"))

    def test_failures_name_file_path_and_offset(self):
        self.make()
        der = self.home.read("cert.der")
        cases = {
            "cut": (der[:200], []),
            "behind": (der + b"\0", []),
            "empty": (b"", ["empty"]),
            "words": (b"just words, no object", []),
            "bad armour": (b"-----BEGIN CERTIFICATE-----\n!!!!\n-----END CERTIFICATE-----\n",
                           ["base64"]),
            "no end": (b"-----BEGIN CERTIFICATE-----\nMAAA\n", ["no end line"]),
            "wrong type": (self.home.read("crl.pem"), ["--as", "Certificate"]),
            "private key": (self.home.read("key.pem"), ["private key"]),
            "zeros": (bytes(1000), []),
            "deep": (b"\x30\x80" * 5000, []),
        }
        for name, (content, words) in cases.items():
            with self.subTest(case=name):
                path = self.home.write("bad", content)
                more = words if words[:1] == ["--as"] else []
                done = self.home.run("show", *more, path, code=1)
                self.assertOneLine(done, path, *([] if more else words))
        # A fault inside says where it is: the version of the certificate made a BOOLEAN.
        at = der.index(b"\xa0\x03\x02\x01\x02")
        path = self.home.write("bad", der[:at + 2] + b"\x01" + der[at + 3:])
        done = self.home.run("show", "--as", "Certificate", path, code=1)
        self.assertOneLine(done, path, "tbsCertificate.version", str(at + 2))

    def test_types_by_name(self):
        self.make()
        path = self.home.path("key.der")
        self.home.run("show", "--as", "subjectpublickeyinfo", path)
        done = self.home.run("show", "--as", "Nonsense", path, code=2)
        self.assertOneLine(done, "GeneralNames")


if __name__ == "__main__":
    unittest.main()
