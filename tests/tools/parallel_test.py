"""Several processes issuing from one CA at once: no serial number twice, none lost."""

import unittest
from concurrent.futures import ThreadPoolExecutor

from program import CA, ProgramTest

PROCESSES, NAMES = 4, [f"p{i}" for i in range(48)]


class Parallel(ProgramTest):
    def setUp(self):
        super().setUp()
        self.home.root()
        self.home.p10(self.home.request())

    def test_issue_in_four_processes(self):
        with ThreadPoolExecutor(PROCESSES) as workers:
            list(workers.map(lambda name: self.home.issue(name=name), NAMES))
        # The number's last six octets count the certificates.
        counts = sorted(int(self.home.serial(name + ".pem")[-12:], 16) for name in NAMES)
        self.assertEqual(counts, list(range(1, len(NAMES) + 1)))
        self.home.verify("p47.pem")
        number = self.home.run("config", "get", CA + r"\certnum").text.strip()
        self.assertEqual(int(number[-12:], 16), len(NAMES))

    def test_server_and_issuers_share_a_ca(self):
        with self.served("--approve", "all") as ca:
            for i in range(3):
                ca.enrol("--trust", self.home.path("root.pem"), "--certout", f"e{i}.pem")
                self.home.issue(name=f"i{i}")
        counts = sorted(int(self.home.serial(f"{kind}{i}.pem")[-12:], 16)
                        for kind in "ei" for i in range(3))
        self.assertEqual(counts, [1, 2, 3, 4, 5, 6])


if __name__ == "__main__":
    unittest.main()
