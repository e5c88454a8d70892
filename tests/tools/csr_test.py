"""Requests made by OpenSSL through `p10`, `issue` and `reject`, and its own CMP requests."""

import unittest

from program import CA, ROOT, ProgramTest, openssl

EXTENSIONS = ["-addext", "subjectAltName=DNS:bob.example,email:bob@example.org,IP:192.0.2.9",
              "-addext", "keyUsage=critical,digitalSignature,keyEncipherment", "-addext",
              "extendedKeyUsage=clientAuth"]
KEYS = {
    "RSA-2048": ["rsa:2048"],
    "P-256": ["ec", "-pkeyopt", "ec_paramgen_curve:P-256"],
    "P-384": ["ec", "-pkeyopt", "ec_paramgen_curve:P-384", "-sha384"],
}
SUBJECT = "/C=RU/O=Пример/CN=Боб Füchsle"


class Requests(ProgramTest):
    def setUp(self):
        super().setUp()
        self.home.root()

    def request(self, name, key, *more, subject=SUBJECT):
        openssl("req", "-new", "-utf8", "-newkey", *key, "-nodes", "-keyout",
                self.home.path(name + ".key"), "-subj", subject, "-out",
                self.home.path(name + ".csr"), *more)
        return self.home.path(name + ".csr")

    def assert_requested(self, name):
        self.home.verify(name)
        text = self.home.x509(name)
        for words in ("Subject: C=RU, O=Пример, CN=Боб Füchsle",
                      "DNS:bob.example, email:bob@example.org, IP Address:192.0.2.9",
                      "X509v3 Key Usage: critical", "Digital Signature, Key Encipherment",
                      "TLS Web Client Authentication", "X509v3 Subject Key Identifier"):
            self.assertIn(words, text)

    def test_keys_and_forms(self):
        for name, key in KEYS.items():
            for form in ("PEM", "DER"):
                with self.subTest(key=name, form=form):
                    csr = self.request("csr", key, *EXTENSIONS, "-outform", form)
                    self.home.p10(csr)
                    self.home.issue()
                    self.assert_requested("issued.pem")
                    self.assert_same_key("csr.key", "issued.pem")

    def assert_same_key(self, key, certificate):
        ours = openssl("x509", "-in", self.home.path(certificate), "-noout", "-pubkey").stdout
        theirs = openssl("pkey", "-in", self.home.path(key), "-pubout").stdout
        self.assertEqual(ours, theirs)

    def test_armours(self):
        pem = self.home.read(self.request("csr", KEYS["P-256"])).decode()
        body = "".join(pem.splitlines()[1:-1])
        armours = {
            "new": pem.replace("CERTIFICATE REQUEST", "NEW CERTIFICATE REQUEST"),
            "carriage returns": pem.replace("\n", "\r\n"),
            "text around": "A request of Bob's:\n" + pem + "and nothing more\n",
            "bare base64": body,
        }
        for name, text in armours.items():
            with self.subTest(armour=name):
                self.home.p10(self.home.write("armour", text))
                self.home.issue()
                self.home.verify("issued.pem")

    def test_named_container_signs(self):
        csr = self.request("csr", KEYS["P-256"])
        fresh = self.home.json("p10", "--csr", csr, "--recipient", ROOT, "--reqout",
                               self.home.path("request.der"))
        self.assertTrue(fresh["fresh"])
        again = self.home.json("p10", "--csr", csr, "--recipient", ROOT, "--container",
                               fresh["container"], "--reqout", self.home.path("request.der"))
        self.assertFalse(again["fresh"])
        self.assertEqual(again["container"], fresh["container"])
        self.home.issue()
        self.home.verify("issued.pem")

    def test_openssl_cmp_requests(self):
        csr = self.request("csr", KEYS["P-256"], *EXTENSIONS)
        key = ["-secret", "pass:secret", "-ref", "bob"]
        # Nobody listens there: only the request is wanted.
        openssl("cmp", "-cmd", "p10cr", "-csr", csr, *key, "-server", "127.0.0.1:1", "-recipient",
                "/O=Test/CN=Test Root", "-reqout", self.home.path("request.der"), "-certout",
                self.home.path("none"), check=False)
        self.home.issue()
        self.assert_requested("issued.pem")

    def test_openssl_reads_our_answers(self):
        """The issued certificate is what stands in the answer; its transaction is the request's."""
        self.home.p10(self.request("csr", KEYS["P-256"]))
        self.home.issue()
        request, answer = (self.home.json("show", self.home.path(name))[0]["value"]
                           for name in ("request.der", "issued.rsp"))
        self.assertEqual(answer["header"]["transactionID"], request["header"]["transactionID"])
        response = answer["body"]["cp"]["response"][0]
        self.assertEqual(response["status"]["status"], "0")
        self.assertEqual(response["certReqId"], "-1")
        parsed = openssl("asn1parse", "-inform", "DER", "-in", self.home.path("issued.rsp")).stdout
        self.assertNotIn("Error", parsed)

    def test_forged_requests_are_refused(self):
        csr = self.request("csr", KEYS["P-256"], "-outform", "DER")
        der = bytearray(self.home.read(csr))
        der[-3] ^= 1
        self.home.p10(self.home.write("forged.csr", bytes(der)))
        done = self.home.issue(code=1)
        self.assertOneLine(done, "signature")
        self.assert_refusal("issued.rsp", "badPOP")

    def assert_refusal(self, name, failure):
        value = self.home.json("show", self.home.path(name))[0]["value"]
        status = value["body"]["cp"]["response"][0]["status"]
        self.assertEqual(status["status"], "2")
        self.assertIn(failure, status["failInfo"])

    def test_ca_rights_are_not_given_away(self):
        for extension, words in (("basicConstraints=critical,CA:TRUE", "CA:TRUE"),
                                 ("keyUsage=cRLSign", "CRL Sign"),
                                 ("keyUsage=keyCertSign", "Certificate Sign")):
            with self.subTest(extension=extension):
                self.home.p10(self.request("csr", KEYS["P-256"], "-addext", extension))
                self.assertOneLine(self.home.issue(code=1), "rights of a CA")
                self.home.issue(more=("--allow-ca",))
                self.assertIn(words, self.home.x509("issued.pem"))

    def test_an_extension_twice_is_refused(self):
        self.home.p10(self.request("csr", KEYS["P-256"], "-addext", "nsComment=a", "-addext",
                                   "2.16.840.1.113730.1.13=ASN1:IA5:b"))
        self.assertOneLine(self.home.issue(code=1), "extension twice")
        self.assert_refusal("issued.rsp", "badRequest")

    def test_reject(self):
        self.home.p10(self.request("csr", KEYS["P-256"]))
        common = ["reject", "--ca", CA, "--reqin", self.home.path("request.der"), "--rspout",
                  self.home.path("no.rsp")]
        self.home.run(*common, "--status", "2", "--fail", "badRequest|badPOP|systemFailure",
                      "--text", "нет такого клиента")
        value = self.home.json("show", self.home.path("no.rsp"))[0]["value"]
        status = value["body"]["cp"]["response"][0]["status"]
        self.assertEqual(status["status"], "2")
        self.assertEqual(status["statusString"], ["нет такого клиента"])
        for bad in (["--fail", "badWeather"], ["--fail", "badPOP|"], ["--status", "0"]):
            done = self.home.run(*common, *bad, code=None)
            self.assertEqual(done.returncode, 0 if bad[1] == "badPOP|" else 2, bad)


if __name__ == "__main__":
    unittest.main()
