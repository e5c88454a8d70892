"""What `show` reads, writes again byte for byte, and says of what it cannot read."""

import json
import os
import unittest

from program import P256, ProgramTest

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
    def setUp(self):
        """A certificate, a CRL, a request and a public key by OpenSSL, as PEM and as DER."""
        super().setUp()
        home = self.home
        home.write("openssl.cnf", CONFIG)
        config = ["-config", "openssl.cnf"]
        home.openssl("req", *config, "-x509", "-utf8", "-newkey", *P256, "-nodes", "-keyout",
                     "key.pem", "-extensions", "exts", "-out", "cert.pem")
        home.openssl("req", *config, "-new", "-utf8", "-key", "key.pem", "-reqexts", "exts", "-out",
                     "csr.pem")
        home.write("index.txt", "R\t301231235959Z\t260101000000Z,keyCompromise\t01\tunknown\t/CN=a\n"
                                "R\t301231235959Z\t260101000000Z\t02AB\tunknown\t/CN=b\n")
        home.write("crlnumber", "1000\n")
        home.openssl("ca", *config, "-gencrl", "-cert", "cert.pem", "-keyfile", "key.pem", "-out",
                     "crl.pem")
        for kind, name in (("x509", "cert"), ("req", "csr"), ("crl", "crl")):
            home.openssl(kind, "-in", name + ".pem", "-outform", "DER", "-out", name + ".der")
        home.openssl("pkey", "-in", "key.pem", "-pubout", "-outform", "DER", "-out", "key.der")

    TYPES = {"cert.der": "Certificate", "crl.der": "CertificateList",
             "csr.der": "CertificationRequest", "key.der": "SubjectPublicKeyInfo",
             "request.der": "PKIMessage", "issued.rsp": "PKIMessage"}

    def messages(self):
        self.home.root()
        self.home.p10(self.home.request())
        self.home.issue()

    def as_der(self, *args):
        return self.home.run("show", "--format", "der", *args).stdout

    def test_found_by_itself_and_round_trip(self):
        self.messages()
        for name, kind in self.TYPES.items():
            with self.subTest(file=name):
                shown = self.home.json("show", name)
                self.assertEqual([(x["file"], x["type"]) for x in shown], [(name, kind)])
                xer = self.home.run("show", name).text
                self.assertTrue(xer.startswith(f"<{kind}>") and xer.endswith(f"</{kind}>\n"))
                self.assertEqual(self.as_der(name), self.home.read(name))
                self.home.write("again", self.home.run("show", "--format", "pem", name).stdout)
                self.assertEqual(self.as_der("--as", kind, "again"), self.home.read(name))

    def test_xer_has_a_line_an_element(self):
        depth = 0
        lines = self.home.run("show", "cert.der").text.splitlines()
        for line in lines:
            element = line.lstrip(" ")
            depth -= element.startswith("</")
            self.assertEqual(len(line) - len(element), 2 * depth, line)
            depth += "</" not in element
        self.assertEqual(depth, 0)
        for part in ("<KeyUsage><keyCertSign/><cRLSign/></KeyUsage>", "<cA><true/></cA>"):
            self.assertIn(part, [line.lstrip(" ") for line in lines])

    def test_pem_is_openssls(self):
        for name in ("cert", "crl", "csr"):
            shown = self.home.run("show", "--format", "pem", name + ".der")
            self.assertEqual(shown.stdout, self.home.read(name + ".pem"), name)

    def test_parts_of_messages(self):
        """A part cut out of a message, found by its place in OpenSSL's dump."""
        self.messages()
        parse = ["asn1parse", "-inform", "DER", "-in", "issued.rsp"]
        lines = self.home.openssl(*parse).splitlines()
        place = next(line.split(":")[0].strip() for line in lines if "d=1 " in line)
        self.home.openssl(*parse, "-strparse", place, "-out", "header.der", check=False)
        if not os.path.exists(self.home.path("header.der")):
            self.skipTest("this openssl cuts no parts out")
        self.assertEqual(self.home.json("show", "header.der")[0]["type"], "PKIHeader")

    def test_json_says_what_openssl_says(self):
        tree = self.home.show("cert.der")
        certificate = tree["tbsCertificate"]
        self.assertEqual(int(certificate["serialNumber"]), int(self.home.serial("cert.pem"), 16))
        extensions = {e["extnID"]: e["extnValue"] for e in certificate["extensions"]}
        self.assertEqual(extensions["2.5.29.15"], {"KeyUsage": ["keyCertSign", "cRLSign"]})
        self.assertEqual(extensions["2.5.29.19"],
                         {"BasicConstraintsSyntax": {"cA": True, "pathLenConstraint": "3"}})
        names = extensions["2.5.29.17"]["SubjectAltName"]
        self.assertEqual([list(n)[0] for n in names],
                         ["dNSName", "rfc822Name", "uniformResourceIdentifier", "iPAddress",
                          "directoryName", "registeredID"])
        self.assertEqual(names[2]["uniformResourceIdentifier"], "http://d/?a&b")
        self.assertIn("Ромашка & <sons>", json.dumps(tree, ensure_ascii=False))
        revoked = self.home.show("crl.der")["tbsCertList"]["revokedCertificates"]
        self.assertEqual([r["userCertificate"] for r in revoked], ["1", str(0x2AB)])

    def test_bundles_and_several_files(self):
        cert, crl = self.home.read("cert.pem"), self.home.read("crl.pem")
        bundle = self.home.write("bundle", b"# three objects\n" + cert + b"\ntext\n" + crl + cert)
        self.assertEqual([x["type"] for x in self.home.json("show", bundle, "csr.der")],
                         ["Certificate", "CertificateList", "Certificate", "CertificationRequest"])
        self.assertEqual(self.as_der(bundle), b"".join(
            self.home.read(name) for name in ("cert.der", "crl.der", "cert.der")))
        with open(bundle, "rb") as file:
            piped = self.home.run("show", "-", stdin=file)
        ends = [piped.text.count(f"</{kind}>\n") for kind in ("Certificate", "CertificateList")]
        self.assertEqual(ends, [2, 1])

    def test_armour_of_other_hands(self):
        lines = self.home.read("cert.pem").decode().splitlines()
        texts = {"headers": [lines[0], "Proc-Type: x", "", *lines[1:]],
                 "a text before": ["0 is its number", *lines], "as it is": lines}
        for name, text in texts.items():
            for end in ("\n", "\r\n"):
                with self.subTest(text=name, end=end):
                    path = self.home.write("x.pem", end.join([*text, ""]))
                    self.assertEqual(self.as_der(path), self.home.read("cert.der"))

    def test_failures_name_file_path_and_offset(self):
        der = self.home.read("cert.der")
        begin = b"-----BEGIN CERTIFICATE-----\n"
        cases = {
            "cut": (der[:200], []),
            "behind": (der + b"\0", []),
            "empty": (b"", ["empty"]),
            "words": (b"just words, no object", []),
            "bad armour": (begin + b"!!!!\n-----END CERTIFICATE-----\n", ["base64"]),
            "no end": (begin + b"MAAA\n", ["no end line"]),
            "private key": (self.home.read("key.pem"), ["private key"]),
            "zeros": (bytes(1000), []),
            "deep": (b"\x30\x80" * 5000, []),
        }
        for name, (content, words) in cases.items():
            with self.subTest(case=name):
                path = self.home.write("bad", content)
                self.assertOneLine(self.home.run("show", path, code=1), path, *words)
        wrong_type = self.home.run("show", "--as", "Certificate", "crl.pem", code=1)
        self.assertOneLine(wrong_type, "crl.pem")
        # A fault inside says where it is: the version of the certificate made a BOOLEAN.
        at = der.index(b"\xa0\x03\x02\x01\x02")
        path = self.home.write("bad", der[:at + 2] + b"\x01" + der[at + 3:])
        done = self.home.run("show", "--as", "Certificate", path, code=1)
        self.assertOneLine(done, path, "tbsCertificate.version", str(at + 2))

    def test_types_by_name(self):
        self.home.run("show", "--as", "subjectpublickeyinfo", "key.der")
        done = self.home.run("show", "--as", "Nonsense", "key.der", code=2)
        self.assertOneLine(done, "GeneralNames")


if __name__ == "__main__":
    unittest.main()
