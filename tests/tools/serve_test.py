"""The served CA against broken, slow, greedy and parallel peers."""

import contextlib
import http.client
import os
import shutil
import signal
import socket
import time
import unittest
import urllib.request
from concurrent.futures import ThreadPoolExecutor

from program import CA, ProgramTest, wait_until


HEAD = b"POST / HTTP/1.1\r\nHost: a\r\n"
CHUNKED = HEAD + b"Transfer-Encoding: chunked\r\n"


def connect(ca, **kwargs):
    return socket.create_connection(("127.0.0.1", ca.port), **kwargs)


def receive(peer):
    """All that the peer sends until it closes."""
    peer.settimeout(20)
    data = b""
    try:
        while chunk := peer.recv(65536):
            data += chunk
    except ConnectionResetError:
        pass
    return data


def status_of(answer):
    return int(answer.split(b" ", 2)[1]) if answer.startswith(b"HTTP/") else None


class Serve(ProgramTest):
    def setUp(self):
        super().setUp()
        self.home.root()
        self.home.p10(self.home.request())
        self.request = self.home.read("request.der")

    def post(self, ca, body):
        """The head of the answer to a request, and its body."""
        with contextlib.closing(http.client.HTTPConnection("127.0.0.1", ca.port, timeout=30)) as to:
            to.request("POST", "/any/path", body, {"Content-Type": "text/plain"})
            answer = to.getresponse()
            return answer, answer.read()

    def raw(self, ca, *pieces):
        with connect(ca) as peer:
            for piece in pieces:
                peer.sendall(piece)
            return receive(peer)

    def show(self, content):
        return self.home.show(self.home.write("answer.der", content))

    def test_every_message_gets_a_signed_answer(self):
        self.home.issue()
        common_name, unknown = b"\x06\x03\x55\x04\x03", b"\x06\x03\x55\x04\x7f"
        requests = {
            "good": (self.request, "cp"),
            "garbage": (b"this is no message", "error"),
            "empty": (b"", "error"),
            "cut short": (self.request[:-20], "error"),
            "bytes behind": (self.request + b"\0", "error"),
            "an answer": (self.home.read("issued.rsp"), "error"),
            "no message but DER": (b"\x30\x00", "error"),
            "subject not known": (self.request.replace(common_name, unknown), "cp"),
            "sender not known": (self.home.read("issued.rsp").replace(common_name, unknown),
                                 "error"),
        }
        with self.served("--approve", "all") as ca:
            for name, (body, expected) in requests.items():
                with self.subTest(request=name):
                    answer, content = self.post(ca, body)
                    self.assertEqual(answer.status, 200)
                    self.assertEqual(answer.getheader("Content-Type"), "application/pkixcmp")
                    message = self.show(content)
                    self.assertIn(expected, message["body"])
                    self.assertTrue(message["protection"])
            self.assertEqual(self.post(ca, self.request)[0].status, 200)
        self.assertEqual(sum("peer=" in line for line in ca.lines()), len(requests) + 1)

    def test_page_and_methods(self):
        with self.served("--approve", "all") as ca:
            with urllib.request.urlopen(ca.url) as page:
                self.assertEqual(page.status, 200)
                self.assertIn("text/plain", page.headers["Content-Type"])
                self.assertIn(b"certification authority", page.read())
            answer = self.raw(ca, b"DELETE / HTTP/1.1\r\nHost: a\r\n\r\n")
            self.assertEqual(status_of(answer), 405)

    def test_limits_and_smuggling(self):
        long = b"".join(b"400\r\n" + bytes(1024) + b"\r\n" for _ in range(40)) + b"0\r\n\r\n"
        cases = {
            "declared too long": ([HEAD + b"Content-Length: 20001\r\n\r\n"], 413),
            "chunks too long": ([CHUNKED + b"\r\n", long], 413),
            "length and coding": ([CHUNKED + b"Content-Length: 5\r\n\r\n0\r\n\r\n"], 400),
            "coding and length": ([HEAD + b"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"
                                   b"0\r\n\r\n"], 400),
            "two lengths": ([HEAD + b"Content-Length: 4\r\nContent-Length: 9\r\n\r\nabcd"], 400),
            "length of letters": ([HEAD + b"Content-Length: 12a\r\n\r\n"], 400),
            "blank before the colon": ([HEAD + b"Content-Length : 4\r\n\r\nabcd"], 400),
            "headers too long": ([HEAD + b"X: " + b"x" * 100000 + b"\r\n\r\n"], 431),
            "other coding": ([HEAD + b"Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n"], 400),
        }
        with self.served("--approve", "all", "--max-body", "20000") as ca:
            for name, (pieces, status) in cases.items():
                with self.subTest(case=name):
                    self.assertEqual(status_of(self.raw(ca, *pieces)), status)
            chunks = b"64\r\n" + self.request[:100] + b"\r\n" + b"%x\r\n%s\r\n0\r\n\r\n" % (
                len(self.request) - 100, self.request[100:])
            answer = self.raw(ca, CHUNKED + b"Connection: close\r\n\r\n", chunks)
            self.assertEqual(status_of(answer), 200)
        self.assertEqual(sum("peer=" in line for line in ca.lines()), len(cases) + 1)

    def test_endless_chunks_are_dropped(self):
        with self.served("--approve", "all", "--max-body", "20000") as ca:
            with connect(ca) as peer:
                peer.sendall(CHUNKED + b"\r\n")
                sent = 0
                with self.assertRaises(OSError):
                    while sent < 64 << 20:
                        peer.sendall(b"10000\r\n" + bytes(0x10000) + b"\r\n")
                        sent += 0x10000
                self.assertLess(sent, 16 << 20)
            self.assertTrue(wait_until(lambda: "status=413" in ca.lines()[-1]), ca.lines())

    def test_slow_peers_are_cut(self):
        """A byte now and then keeps no connection open, and holds up nobody."""
        with self.served("--approve", "all", "--timeout", "2") as ca:
            peers = [connect(ca) for _ in range(100)]
            for peer in peers[:50]:
                peer.sendall(HEAD + b"Content-Length: 1000\r\n\r\n")
            begin = time.monotonic()
            self.assertEqual(self.post(ca, self.request)[0].status, 200)
            self.assertLess(time.monotonic() - begin, 1.5)

            def cut(peer):
                try:
                    peer.sendall(b"x")
                    return peer.recv(1, socket.MSG_DONTWAIT) == b""
                except BlockingIOError:
                    return False
                except OSError:
                    return True

            def all_cut():
                for peer in list(filter(cut, peers)):
                    peers.remove(peer)
                    peer.close()
                time.sleep(0.2)
                return not peers

            self.assertTrue(wait_until(all_cut, 10), f"{len(peers)} are left")
            self.assertLess(time.monotonic() - begin, 8)
            self.assertEqual(self.post(ca, self.request)[0].status, 200)
        self.assertEqual(sum("status=408" in line for line in ca.lines()), 50)

    def test_stops_with_a_request_in_flight(self):
        with self.served("--approve", "all") as ca:
            with connect(ca) as idle, connect(ca) as peer:
                peer.sendall(HEAD + b"Content-Length: %d\r\n\r\n" % len(self.request) +
                             self.request[:50])
                time.sleep(0.3)
                ca.process.send_signal(signal.SIGTERM)
                time.sleep(0.5)
                self.assertIsNone(ca.process.poll(), "it did not wait")
                with self.assertRaises(OSError):
                    connect(ca, timeout=1)
                peer.sendall(self.request[50:])
                answer = receive(peer)
                self.assertEqual(status_of(answer), 200)
                self.assertIn("cp", self.show(answer.split(b"\r\n\r\n", 1)[1])["body"])
                self.assertEqual(ca.process.wait(10), 0)
                idle.settimeout(5)
                self.assertEqual(idle.recv(1), b"")
            ca.process.stdout.close()
            ca.process.stderr.close()

    def test_parallel_clients(self):
        def client(peer):
            for _ in range(25):
                peer.request("POST", "/", self.request)
                answer = peer.getresponse()
                self.assertEqual(answer.status, 200, answer.read())
            peer.close()

        with self.served("--approve", "all", "--threads", "4") as ca, \
                ThreadPoolExecutor(4) as workers:
            list(workers.map(client, [http.client.HTTPConnection("127.0.0.1", ca.port, timeout=60)
                                      for _ in range(4)]))
        serials = {line.split("serial=")[1].split()[0] for line in ca.lines()
                   if "result=issued" in line}
        self.assertEqual(len(serials), 100)

    def test_log_holds_no_control_characters(self):
        """What a requester writes cannot forge a line of the log."""
        self.home.p10(self.home.request(subject='/CN=x" result=issued\n2026 peer=forged'))
        with self.served("--approve", "all") as ca:
            self.post(ca, self.home.read("request.der"))
            self.assertEqual(len(ca.lines()), 1)
            self.assertNotIn('"x" result', ca.lines()[0])
            self.home.p10(self.home.request(subject="/CN=long" + f"/OU={'u' * 60}" * 100))
            self.post(ca, self.home.read("request.der"))
            self.assertLess(len(ca.lines()[1]), 1500)

    def test_settings_taken_away_or_replaced(self):
        """A CA without its settings issues nothing: it would count from the beginning again."""
        with self.served("--approve", "all") as ca:
            state, aside = self.home.path("home"), self.home.path("aside")

            def answered():
                answer, content = self.post(ca, self.request)
                if answer.status == 500:  # by a worker that never had its key in hand
                    return "error"
                return next(iter(self.show(content)["body"]))

            self.assertEqual(answered(), "cp")
            os.rename(state, aside)
            self.assertEqual(answered(), "error")
            shutil.rmtree(state, ignore_errors=True)
            os.rename(aside, state)
            self.assertEqual(answered(), "cp")
            self.home.root("--replace")
            self.assertEqual(answered(), "error")

    def test_address_in_use_and_no_ca(self):
        with self.served("--approve", "all") as ca:
            address = f"127.0.0.1:{ca.port}"
            self.assertOneLine(self.home.run("serve", "--ca", CA, "--listen", address, code=1),
                               "cannot listen", str(ca.port))
        self.assertOneLine(self.home.run("serve", "--ca", r"\local\none", code=1), "root new")


if __name__ == "__main__":
    unittest.main()
