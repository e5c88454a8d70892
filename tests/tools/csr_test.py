"""Requests made by OpenSSL through `p10`, `issue` and `reject`, and its own CMP requests."""

import json
import unittest

from program import CA, P256, ProgramTest

EXTENSIONS = ["-addext", "subjectAltName=DNS:bob.example,email:bob@example.org,IP:192.0.2.9",
              "-addext", "keyUsage=critical,digitalSignature,keyEncipherment", "-addext",
              "extendedKeyUsage=clientAuth"]
SUBJECT = "/C=RU/O=Пример/CN=Боб Füchsle"
KEYS = [["rsa:2048"], P256, ["ec", "-pkeyopt", "ec_paramgen_curve:P-384", "-sha384"]]


class Requests(ProgramTest):
    def setUp(self):
        super().setUp()
        self.home.root()

    def assert_requested(self):
        """The certificate holds what Bob asks for in his requests."""
        self.home.verify("issued.pem")
        text = self.home.x509("issued.pem")
        for words in ("Subject: C=RU, O=Пример, CN=Боб Füchsle",
                      "DNS:bob.example, email:bob@example.org, IP Address:192.0.2.9",
                      "X509v3 Key Usage: critical", "Digital Signature, Key Encipherment",
                      "TLS Web Client Authentication", "X509v3 Subject Key Identifier"):
            self.assertIn(words, text)

    def test_keys_and_forms(self):
        for key in KEYS:
            for form in ("PEM", "DER"):
                with self.subTest(key=key, form=form):
                    self.home.p10(self.home.request(*EXTENSIONS, "-outform", form, key=key,
                                                    subject=SUBJECT))
                    self.home.issue()
                    self.assert_requested()
                    self.assertEqual(self.home.x509("issued.pem", "-pubkey"),
                                     self.home.openssl("pkey", "-in", "csr.key", "-pubout"))

    def test_armours(self):
        pem = self.home.read(self.home.request()).decode()
        armours = {
            "new": pem.replace("CERTIFICATE REQUEST", "NEW CERTIFICATE REQUEST"),
            "carriage returns": pem.replace("\n", "\r\n"),
            "text around": "A request of Bob's:\n" + pem + "and nothing more\n",
            "bare base64": "".join(pem.splitlines()[1:-1]),
        }
        for name, text in armours.items():
            with self.subTest(armour=name):
                self.home.p10(self.home.write("armour", text))
                self.home.issue()
                self.home.verify("issued.pem")

    def test_named_container_signs(self):
        csr = self.home.request()
        fresh = json.loads(self.home.p10(csr, "--json").text)
        self.assertTrue(fresh["fresh"])
        again = json.loads(self.home.p10(csr, "--json", "--container", fresh["container"]).text)
        self.assertFalse(again["fresh"])
        self.assertEqual(again["container"], fresh["container"])
        self.home.issue()
        self.home.verify("issued.pem")

    def test_openssl_cmp_requests(self):
        csr = self.home.request(*EXTENSIONS, subject=SUBJECT)
        # Nobody listens there: only the request is wanted.
        self.home.openssl("cmp", "-cmd", "p10cr", "-csr", csr, "-secret", "pass:secret", "-ref",
                          "bob", "-server", "127.0.0.1:1", "-recipient", "/O=Test/CN=Test Root",
                          "-reqout", "request.der", "-certout", "none", check=False)
        self.home.issue()
        self.assert_requested()

    def status(self, name="issued.rsp"):
        return self.home.show(name)["body"]["cp"]["response"][0]["status"]

    def test_openssl_reads_our_answers(self):
        """The issued certificate is what stands in the answer; its transaction is the request's."""
        self.home.p10(self.home.request())
        self.home.issue()
        request, answer = (self.home.show(name) for name in ("request.der", "issued.rsp"))
        self.assertEqual(answer["header"]["transactionID"], request["header"]["transactionID"])
        self.assertEqual(self.status()["status"], "0")
        self.assertEqual(answer["body"]["cp"]["response"][0]["certReqId"], "-1")
        parsed = self.home.openssl("asn1parse", "-inform", "DER", "-in", "issued.rsp")
        self.assertNotIn("Error", parsed)

    def assert_refused(self, words, failure):
        self.assertOneLine(self.home.issue(code=1), words)
        self.assertEqual(self.status()["status"], "2")
        self.assertIn(failure, self.status()["failInfo"])

    def test_forged_requests_are_refused(self):
        der = bytearray(self.home.read(self.home.request("-outform", "DER")))
        der[-3] ^= 1
        self.home.p10(self.home.write("forged.csr", bytes(der)))
        self.assert_refused("signature", "badPOP")

    def test_ca_rights_are_not_given_away(self):
        for extension, words in (("basicConstraints=critical,CA:TRUE", "CA:TRUE"),
                                 ("keyUsage=cRLSign", "CRL Sign"),
                                 ("keyUsage=keyCertSign", "Certificate Sign")):
            with self.subTest(extension=extension):
                self.home.p10(self.home.request("-addext", extension))
                self.assertOneLine(self.home.issue(code=1), "rights of a CA")
                self.home.issue("--allow-ca")
                self.assertIn(words, self.home.x509("issued.pem"))

    def test_an_extension_twice_is_refused(self):
        self.home.p10(self.home.request("-addext", "nsComment=a", "-addext",
                                        "2.16.840.1.113730.1.13=ASN1:IA5:b"))
        self.assert_refused("extension twice", "badRequest")

    def test_reject(self):
        self.home.p10(self.home.request())
        reject = ["reject", "--ca", CA, "--reqin", "request.der", "--rspout", "no.rsp"]
        self.home.run(*reject, "--status", "2", "--fail", "badRequest|badPOP|systemFailure",
                      "--text", "нет такого клиента")
        status = self.status("no.rsp")
        self.assertEqual(status["status"], "2")
        self.assertEqual(status["statusString"], ["нет такого клиента"])
        for option, value, code in (("--fail", "badWeather", 2), ("--fail", "badPOP|", 0),
                                    ("--status", "0", 2)):
            self.home.run(*reject, option, value, code=code)


if __name__ == "__main__":
    unittest.main()
