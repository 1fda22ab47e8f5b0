#!/usr/bin/env python3
"""Measures what hostile clients cost a running mirlo-service, on loopback only.

    service/attack.py PORT PID

PORT is where the service listens on 127.0.0.1, PID its process (read in /proc for its memory).
Each attack runs while a well-behaved client keeps asking for /version.json and a correction;
the table gives the service's peak resident memory during the attack and the slowest answer the
other client got. Every loop is bounded in count and time. service/attack.sh builds and starts a
throw-away service and runs this against it.
"""
import base64
import hashlib
import hmac
import http.client
import json
import socket
import sys
import threading
import time
import zlib

DEMO_SECRET = b"super-secret-jwt-token-with-at-least-32-characters-long"


def b64(data):
    return base64.urlsafe_b64encode(data).rstrip(b"=").decode()


def anon_key():
    head = b64(json.dumps({"alg": "HS256", "typ": "JWT"}).encode())
    body = b64(json.dumps({"role": "anon", "exp": int(time.time()) + 3600}).encode())
    sig = hmac.new(DEMO_SECRET, f"{head}.{body}".encode(), hashlib.sha256).digest()
    return f"{head}.{body}.{b64(sig)}"


class Service:
    def __init__(self, port, pid):
        self.port, self.pid, self.key = port, pid, anon_key()

    def memory(self, field):
        with open(f"/proc/{self.pid}/status") as f:
            for line in f:
                if line.startswith(field + ":"):
                    return int(line.split()[1]) // 1024
        return -1

    def reset_peak(self):
        with open(f"/proc/{self.pid}/clear_refs", "w") as f:
            f.write("5")

    def call(self, method, path, body=None, token=None, timeout=10):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        headers = {"apikey": self.key, "Content-Type": "application/json"}
        if token:
            headers["Authorization"] = "Bearer " + token
        start = time.monotonic()
        conn.request(method, path, body=json.dumps(body) if body is not None else None, headers=headers)
        answer = conn.getresponse()
        data = answer.read()
        conn.close()
        return answer.status, data, time.monotonic() - start

    def connect(self):
        s = socket.create_connection(("127.0.0.1", self.port), timeout=10)
        s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return s


def head(svc, extra):
    return (f"POST /functions/v1/correct HTTP/1.1\r\nHost: 127.0.0.1\r\napikey: {svc.key}\r\n"
            f"Content-Type: application/json\r\n{extra}\r\n").encode()


def read_status(sock, limit=15):
    sock.settimeout(limit)
    data = b""
    try:
        while b"\r\n" not in data:
            more = sock.recv(4096)
            if not more:
                break
            data += more
    except OSError:
        pass
    return data.split(b" ")[1].decode() if data.startswith(b"HTTP/") else "no answer"


def slow_clients(svc, stop):
    """Eight clients send a request a byte a second; fifty others connect and say nothing."""
    socks = [svc.connect() for _ in range(58)]
    request = head(svc, "Content-Length: 100\r\n") + b"x" * 100
    sent = 0
    while not stop.wait(1.0) and sent < len(request):
        for s in socks[:8]:
            try:
                s.send(request[sent:sent + 1])
            except OSError:
                pass
        sent += 1
    for s in socks:
        s.close()
    return "cut off" if sent < len(request) else "done"


def chunked_64mb(svc, stop):
    s = svc.connect()
    s.sendall(head(svc, "Transfer-Encoding: chunked\r\n"))
    chunk = b"10000\r\n" + b"a" * 0x10000 + b"\r\n"
    sent = 0
    s.setblocking(False)
    try:
        for _ in range(1024):  # 64 MiB
            view = memoryview(chunk)
            while view:
                try:
                    view = view[s.send(view):]
                except BlockingIOError:
                    time.sleep(0.001)
            sent += 1
            try:
                if s.recv(1, socket.MSG_PEEK):
                    break
            except BlockingIOError:
                pass
    except OSError:
        pass
    s.setblocking(True)
    status = read_status(s)
    s.close()
    return f"{status} after {sent * 64} KiB"


def gzip_bomb(svc, stop):
    packer = zlib.compressobj(9, zlib.DEFLATED, 16 + zlib.MAX_WBITS)
    bomb = b"".join(packer.compress(b"\0" * (1 << 20)) for _ in range(256)) + packer.flush()  # 256 MiB
    s = svc.connect()
    s.sendall(head(svc, f"Content-Encoding: gzip\r\nContent-Length: {len(bomb)}\r\n") + bomb)
    status = read_status(s)
    s.close()
    return f"{status} ({len(bomb) // 1024} KiB inflating to 256 MiB)"


def sign_ins(svc, stop):
    """Eight sign-ins at once, each an Argon2id hash of 64 MiB."""
    results = []

    def one():
        results.append(svc.call("POST", "/auth/v1/token?grant_type=password",
                                {"email": "bench@example.fr", "password": "banc-d-essai-2024"})[0])

    threads = [threading.Thread(target=one) for _ in range(8)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    return " ".join(str(r) for r in sorted(results))


def all_three(svc, stop):
    """The slow and idle clients, the chunked body and the bomb at the same time."""
    results = {}
    threads = [threading.Thread(target=lambda f=f: results.__setitem__(f.__name__, f(svc, stop)))
               for f in (slow_clients, chunked_64mb, gzip_bomb)]
    for t in threads:
        t.start()
    while threads[1].is_alive() or threads[2].is_alive():
        time.sleep(0.05)
    stop.set()
    for t in threads:
        t.join()
    return "; ".join(results[k] for k in ("slow_clients", "chunked_64mb", "gzip_bomb"))


def measure(svc, name, attack, token):
    svc.reset_peak()
    stop = threading.Event()
    outcome = []
    worker = threading.Thread(target=lambda: outcome.append(attack(svc, stop)))
    worker.start()
    slowest = 0.0
    failures = 0
    deadline = time.monotonic() + 12
    while worker.is_alive() or time.monotonic() < deadline - 9:
        try:
            for status, _, took in (svc.call("GET", "/version.json", timeout=5),
                                    svc.call("POST", "/functions/v1/correct",
                                             {"text": "Merci bocoup", "mode": "fix", "device_id": "m"}, token, 5)):
                slowest = max(slowest, took)
                failures += status != 200
        except OSError:
            failures += 1
            slowest = max(slowest, 5.0)
        if time.monotonic() > deadline:
            stop.set()
        time.sleep(0.05)
    stop.set()
    worker.join()
    print(f"| {name} | {outcome[0] if outcome else '?'} | {svc.memory('VmHWM')} MB | "
          f"{slowest * 1000:.0f} ms | {failures} |", flush=True)


def main():
    svc = Service(int(sys.argv[1]), int(sys.argv[2]))
    for path in ("/auth/v1/signup", "/auth/v1/token?grant_type=password"):
        status, data, _ = svc.call("POST", path, {"email": "bench@example.fr", "password": "banc-d-essai-2024"})
        if status == 200:
            break
    if status != 200:
        sys.exit(f"sign-in failed: {status} {data[:200]!r}")
    token = json.loads(data)["access_token"]
    svc.call("POST", "/functions/v1/account/plan", {"plan": "lifetime"}, token)  # no daily limit
    svc.call("POST", "/functions/v1/correct", {"text": "Merci bocoup", "mode": "fix", "device_id": "m"}, token)
    print(f"resident at rest: {svc.memory('VmRSS')} MB\n")
    print("| attack | outcome | service peak | slowest other answer | other answers failed |")
    print("|---|---|---|---|---|")
    measure(svc, "8 slow + 50 idle clients", slow_clients, token)
    measure(svc, "64 MiB chunked body", chunked_64mb, token)
    measure(svc, "gzip bomb", gzip_bomb, token)
    measure(svc, "all three at once", all_three, token)
    measure(svc, "8 sign-ins at once", sign_ins, token)


if __name__ == "__main__":
    main()
