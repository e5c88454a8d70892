"""Several processes issuing from one CA at once: no serial number twice, none lost."""

import subprocess
import threading
import unittest

from program import CA, PROGRAM, ProgramTest

PROCESSES, EACH = 4, 12


class Parallel(ProgramTest):
    def test_issue_in_four_processes(self):
        self.home.root()
        self.home.p10(self.home.ec_request())
        failures = []

        def issue(worker):
            for i in range(EACH):
                name = self.home.path(f"{worker}-{i}")
                done = subprocess.run(
                    [PROGRAM, "issue", "--ca", CA, "--reqin", self.home.path("request.der"),
                     "--rspout", name + ".rsp", "--certout", name + ".pem"],
                    env=self.home.env, capture_output=True, text=True, check=False)
                if done.returncode != 0:
                    failures.append(done.stderr)

        workers = [threading.Thread(target=issue, args=(w,)) for w in range(PROCESSES)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        self.assertEqual(failures, [])
        serials = {self.home.serial(f"{w}-{i}.pem") for w in range(PROCESSES) for i in range(EACH)}
        self.assertEqual(len(serials), PROCESSES * EACH)
        self.home.verify("3-0.pem")
        # The number's last six octets count the certificates.
        number = self.home.run("config", "get", CA + r"\certnum").text.strip()
        self.assertEqual(int(number[-12:], 16), PROCESSES * EACH)

    def test_server_and_issuers_share_a_ca(self):
        self.home.root()
        self.home.p10(self.home.ec_request())
        with self.served("--approve", "all") as ca:
            for i in range(3):
                ca.enrol("--trust", self.home.path("root.pem"), "--certout",
                         self.home.path(f"e{i}.pem"))
                self.home.issue(name=f"i{i}")
        counts = sorted(int(self.home.serial(f"{kind}{i}.pem")[-12:], 16)
                        for kind in "ei" for i in range(3))
        self.assertEqual(counts, [1, 2, 3, 4, 5, 6])


if __name__ == "__main__":
    unittest.main()
