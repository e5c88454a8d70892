"""The served CA against broken, slow, greedy and parallel peers."""

import http.client
import os
import shutil
import signal
import socket
import threading
import time
import unittest
import urllib.request

from program import ProgramTest, wait_until


def receive(peer, seconds=20):
    """All that the peer sends until it closes."""
    peer.settimeout(seconds)
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
        self.home.p10(self.home.ec_request())
        self.request = self.home.read("request.der")

    def post(self, ca, body, headers=None):
        peer = http.client.HTTPConnection("127.0.0.1", ca.port, timeout=30)
        peer.request("POST", "/any/path", body, headers or {})
        answer = peer.getresponse()
        content = answer.read()
        peer.close()
        return answer, content

    def raw(self, ca, *pieces, delay=0.0):
        with socket.create_connection(("127.0.0.1", ca.port)) as peer:
            for piece in pieces:
                peer.sendall(piece)
                time.sleep(delay)
            return receive(peer)

    def show(self, content):
        self.home.write("answer.der", content)
        return self.home.json("show", self.home.path("answer.der"))[0]["value"]

    def test_every_message_gets_a_signed_answer(self):
        requests = {
            "good": (self.request, "cp"),
            "garbage": (b"this is no message", "error"),
            "empty": (b"", "error"),
            "cut short": (self.request[:-20], "error"),
            "bytes behind": (self.request + b"\0", "error"),
            "an answer": (None, "error"),
            "no message but DER": (b"\x30\x00", "error"),
        }
        with self.served("--approve", "all") as ca:
            for name, (body, expected) in requests.items():
                with self.subTest(request=name):
                    if body is None:
                        body = self.post(ca, self.request)[1]
                    answer, content = self.post(ca, body, {"Content-Type": "text/plain"})
                    self.assertEqual(answer.status, 200)
                    self.assertEqual(answer.getheader("Content-Type"), "application/pkixcmp")
                    message = self.show(content)
                    self.assertIn(expected, message["body"])
                    self.assertTrue(message["protection"])
            self.assertEqual(self.post(ca, self.request)[0].status, 200)
        self.assertEqual(len([x for x in ca.lines() if "peer=" in x]), len(requests) + 2)

    def test_page_and_methods(self):
        with self.served("--approve", "all") as ca:
            with urllib.request.urlopen(ca.url) as page:
                self.assertEqual(page.status, 200)
                self.assertIn("text/plain", page.headers["Content-Type"])
                self.assertIn(b"certification authority", page.read())
            answer = self.raw(ca, b"DELETE / HTTP/1.1\r\nHost: a\r\n\r\n")
            self.assertEqual(status_of(answer), 405)

    def test_limits_and_smuggling(self):
        head = b"POST / HTTP/1.1\r\nHost: a\r\n"
        chunked = head + b"Transfer-Encoding: chunked\r\n"
        long = b"".join(b"400\r\n" + bytes(1024) + b"\r\n" for _ in range(40)) + b"0\r\n\r\n"
        cases = {
            "declared too long": ([head + b"Content-Length: 20001\r\n\r\n"], 413),
            "chunks too long": ([chunked + b"\r\n", long], 413),
            "length and coding": ([chunked + b"Content-Length: 5\r\n\r\n0\r\n\r\n"], 400),
            "coding and length": ([head + b"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"
                                   b"0\r\n\r\n"], 400),
            "two lengths": ([head + b"Content-Length: 4\r\nContent-Length: 9\r\n\r\nabcd"], 400),
            "length of letters": ([head + b"Content-Length: 12a\r\n\r\n"], 400),
            "blank before the colon": ([head + b"Content-Length : 4\r\n\r\nabcd"], 400),
            "other coding": ([head + b"Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n"], 400),
        }
        with self.served("--approve", "all", "--max-body", "20000") as ca:
            for name, (pieces, status) in cases.items():
                with self.subTest(case=name):
                    self.assertEqual(status_of(self.raw(ca, *pieces)), status)
            chunks = b"64\r\n" + self.request[:100] + b"\r\n" + b"%x\r\n%s\r\n0\r\n\r\n" % (
                len(self.request) - 100, self.request[100:])
            answer = self.raw(ca, chunked + b"Connection: close\r\n\r\n", chunks)
            self.assertEqual(status_of(answer), 200)

    def test_endless_chunks_are_dropped(self):
        with self.served("--approve", "all", "--max-body", "20000") as ca:
            with socket.create_connection(("127.0.0.1", ca.port)) as peer:
                peer.sendall(b"POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n")
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
            peers = [socket.create_connection(("127.0.0.1", ca.port)) for _ in range(100)]
            for peer in peers[:50]:
                peer.sendall(b"POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 1000\r\n\r\n")
            begin = time.monotonic()
            self.assertEqual(self.post(ca, self.request)[0].status, 200)
            self.assertLess(time.monotonic() - begin, 1.5)

            def cut(peer):
                try:
                    peer.sendall(b"x")
                    peer.setblocking(False)
                    gone = peer.recv(1) == b""
                except BlockingIOError:
                    gone = False
                except OSError:
                    gone = True
                if gone:
                    peer.close()
                return gone

            def all_cut():
                peers[:] = [peer for peer in peers if not cut(peer)]
                time.sleep(0.2)
                return not peers

            self.assertTrue(wait_until(all_cut, 10), f"{len(peers)} are left")
            self.assertLess(time.monotonic() - begin, 8)
            self.assertEqual(self.post(ca, self.request)[0].status, 200)
        self.assertEqual(sum("status=408" in line for line in ca.lines()), 50)

    def test_stops_with_a_request_in_flight(self):
        with self.served("--approve", "all") as ca:
            with socket.create_connection(("127.0.0.1", ca.port)) as idle, \
                    socket.create_connection(("127.0.0.1", ca.port)) as peer:
                peer.sendall(b"POST / HTTP/1.1\r\nHost: a\r\nContent-Length: %d\r\n\r\n"
                             % len(self.request) + self.request[:50])
                time.sleep(0.3)
                ca.process.send_signal(signal.SIGTERM)
                time.sleep(0.5)
                self.assertIsNone(ca.process.poll(), "it did not wait")
                with self.assertRaises(OSError):
                    socket.create_connection(("127.0.0.1", ca.port), timeout=1)
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
        with self.served("--approve", "all", "--threads", "4") as ca:
            failures, serials = [], set()
            lock = threading.Lock()

            def client(number):
                try:
                    peer = http.client.HTTPConnection("127.0.0.1", ca.port, timeout=60)
                    for _ in range(25):
                        peer.request("POST", "/", self.request)
                        answer = peer.getresponse()
                        assert answer.status == 200, answer.status
                        answer.read()
                    peer.close()
                except Exception as failure:  # pylint: disable=broad-except
                    with lock:
                        failures.append((number, failure))

            threads = [threading.Thread(target=client, args=(i,)) for i in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(failures, [])
        for line in ca.lines():
            if "result=issued" in line:
                serials.add(line.split("serial=")[1].split()[0])
        self.assertEqual(len(serials), 100)

    def test_log_holds_no_control_characters(self):
        """What a requester writes cannot forge a line of the log."""
        self.home.p10(self.home.ec_request("bad", '/CN=x" result=issued\n2026 peer=forged'))
        with self.served("--approve", "all") as ca:
            self.post(ca, self.home.read("request.der"))
            self.assertEqual(len(ca.lines()), 1)
            self.assertNotIn('"x" result', ca.lines()[0])
            self.home.p10(self.home.ec_request("long", "/CN=long" + "/OU=" + "/OU=".join(
                ["u" * 60] * 100)))
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
            done = self.home.run("serve", "--ca", r"\local\ca", "--listen",
                                 f"127.0.0.1:{ca.port}", code=1)
            self.assertOneLine(done, "cannot listen", str(ca.port))
        self.assertOneLine(self.home.run("serve", "--ca", r"\local\none", code=1), "root new")


if __name__ == "__main__":
    unittest.main()
