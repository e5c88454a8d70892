"""PINs: where they come from, how many tries there are, and that they are written nowhere."""

import fcntl
import os
import pty
import select
import subprocess
import termios
import time
import unittest

from program import CA, PROGRAM, ROOT, ProgramTest

PIN, OTHER = "7Hq2mZ9x", "9xPinTwo"
ALICE = r"\\.\DISK\alice"
P10 = ["p10", "--csr", "csr", "--recipient", ROOT, "--reqout", "request.der", "--container", ALICE]
PASSWD = ["container", "passwd", ALICE]


class Secrets(ProgramTest):
    def setUp(self):
        """A key in a container with a PIN, certified."""
        super().setUp()
        self.home.request()
        self.home.root()
        with self.served("--approve", "all") as ca:
            ca.enrol("--container", ALICE, "--pin", f"pass:{PIN}", "--trust", "root.pem")

    def p10(self, *more, **kwargs):
        return self.home.run(*P10, *more, **kwargs)

    def tries(self):
        listed = {c["container"]: c for c in self.home.json("container", "ls")}
        return listed[ALICE]["state"], listed[ALICE]["tries"]

    def test_three_tries_across_processes(self):
        self.p10(f"--pin=pass:{PIN}")
        for left in (2, 1):
            self.assertOneLine(self.p10("--pin", "pass:wrong", code=1), "wrong PIN",
                               "2 tries are left" if left == 2 else "1 try is left")
            self.assertEqual(self.tries(), ("whole", left))
        self.p10("--pin", f"pass:{PIN}")
        self.assertEqual(self.tries(), ("whole", 3), "a right PIN gives the tries back")
        for _ in range(3):
            done = self.p10("--pin", "pass:wrong", code=1)
        self.assertOneLine(done, "blocked")
        self.assertEqual(self.tries(), ("blocked", 0))
        os.unlink(self.home.path("request.der"))
        for args in ([*P10, "--pin", f"pass:{PIN}"], [*P10, "--pin", "pass:wrong"],
                     [*PASSWD, "--pin", f"pass:{PIN}", "--new-pin", f"pass:{OTHER}"]):
            self.assertOneLine(self.home.run(*args, code=1), "blocked")
        self.assertFalse(os.path.exists(self.home.path("request.der")), "a blocked key signed")

    def test_the_pin_is_written_nowhere(self):
        said = b""
        for pin in (PIN, OTHER):
            done = self.p10("--pin", f"pass:{pin}", "-v", "--json", code=None)
            said += done.stdout + done.stderr
        for folder, _, files in os.walk(self.home.folder):
            for name in files:
                said += self.home.read(os.path.join(folder, name))
        for pin in (PIN, OTHER):
            self.assertNotIn(pin.encode(), said)
            self.assertNotIn(pin.encode("utf-16-le"), said)

    def test_sources(self):
        self.home.env["CMP_PIN"] = PIN
        self.p10("--pin", "env:CMP_PIN")
        self.p10("--pin", "file:" + self.home.write("pin", PIN + "\nsecond line\n"))
        read, write = os.pipe()
        os.write(write, PIN.encode() + b"\n")
        os.close(write)
        self.p10("--pin", f"fd:{read}", pass_fds=[read])
        os.close(read)
        self.assertEqual(self.tries(), ("whole", 3))

    def test_bad_sources(self):
        cases = {"pass:": 2, "taken:0": 2, "taken:9": 2, "pass:ninechars": 2, "word": 2, "fd:x": 2,
                 "fd:": 2, "env:NO_SUCH": 1, "file:/nonexistent": 1, "file:/": 1, "fd:77": 1}
        for source, code in cases.items():
            with self.subTest(source=source):
                self.assertOneLine(self.p10("--pin", source, code=code))
        self.assertEqual(self.tries(), ("whole", 3), "no try was spent")

    def test_no_terminal_no_question(self):
        self.assertOneLine(self.p10(code=1, start_new_session=True), "--pin")

    def on_terminal(self, args, answers, code=0):
        """Runs the program on a terminal of its own; gives what it showed."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.home.folder)
            os.execve(PROGRAM, [PROGRAM, *args], self.home.env)
        shown = b""
        for prompt, answer in answers:
            end = time.monotonic() + 20
            while prompt not in shown and time.monotonic() < end:
                if select.select([terminal], [], [], 0.1)[0]:
                    shown += os.read(terminal, 1024)
            self.assertIn(prompt, shown)
            os.write(terminal, answer.encode() + b"\n")
        try:
            while chunk := os.read(terminal, 1024):
                shown += chunk
        except OSError:
            pass
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), code, shown)
        return shown

    def test_asked_on_the_terminal(self):
        self.assertNotIn(PIN.encode(), self.on_terminal(P10, [(b"PIN for", PIN)]))
        for again, code in (("another", 1), (OTHER, 0)):
            self.on_terminal(PASSWD, [(b"PIN for", PIN), (b"new PIN for", OTHER),
                                      (b"again", again)], code)
        self.p10("--pin", f"pass:{OTHER}")

    def test_giving_up_brings_the_echo_back(self):
        self.home.run("root", "new", "--ca", r"\local\pin", "--subject", "CN=P", "--pin",
                      f"pass:{PIN}")
        serve = ["serve", "--ca", r"\local\pin", "--listen", "127.0.0.1:0"]
        for args, letter in ((P10, b"\x03"), (serve, b"\x03"), (P10, b"\x1c")):
            terminal, device = pty.openpty()
            with subprocess.Popen([PROGRAM, *args], env=self.home.env, stdin=device,
                                  cwd=self.home.folder, start_new_session=True,
                                  stderr=subprocess.DEVNULL,
                                  preexec_fn=lambda tty=device: fcntl.ioctl(
                                      tty, termios.TIOCSCTTY, 0)) as asking:
                self.assertIn(b"PIN for", os.read(terminal, 1024))
                self.assertFalse(termios.tcgetattr(device)[3] & termios.ECHO)
                os.write(terminal, letter)
                self.assertLess(asking.wait(10), 0)
            self.assertTrue(termios.tcgetattr(device)[3] & termios.ECHO)
            os.close(terminal)
            os.close(device)

    def test_changing(self):
        self.home.run(*PASSWD, "--pin", f"pass:{PIN}", "--new-pin", f"pass:{OTHER}")
        self.assertOneLine(self.p10("--pin", f"pass:{PIN}", code=1), "wrong PIN")
        self.p10("--pin", f"pass:{OTHER}")
        (vault,) = [c["container"] for c in self.home.json("container", "ls")
                    if c["protection"] == "provider"]
        self.home.run("container", "passwd", vault)
        self.home.run("container", "passwd", vault, "--new-pin", f"pass:{PIN}", code=2)
        self.home.p10("csr")
        self.home.issue()

    def test_ca_with_a_pin(self):
        self.home.root("--replace", "--pin", f"pass:{PIN}")
        self.home.p10("csr")
        self.assertOneLine(self.home.issue("--pin", "pass:wrong", code=1), "wrong PIN", "2 tries")
        self.home.issue("--pin", f"pass:{PIN}")
        self.home.verify("issued.pem")
        with self.served("--approve", "all", "--pin", f"pass:{PIN}") as ca:
            ca.enrol("--trust", "root.pem")
            with open(f"/proc/{ca.process.pid}/cmdline", "rb") as file:
                listed = file.read()
            self.assertIn(b"serve", listed)
            self.assertNotIn(PIN.encode(), listed)
        done = self.home.run("serve", "--ca", CA, "--pin", "pass:wrong", code=1)
        self.assertOneLine(done, "wrong PIN")


if __name__ == "__main__":
    unittest.main()
