#!/usr/bin/python3
"""The `mirlo` URL scheme on a private X11 desktop (run under tests/linux/with-desktop.sh).

The browser ends the sign-in by starting `mirlo mirlo://auth#access_token=…&refresh_token=…`.
With the program already running, that start hands the address over the session bus and ends at
once, and the running program stores the session; foreign and malformed addresses are handed over
too and change nothing. With no program running, the same start becomes the program, signed in.

    url_scheme_test.py MIRLO

Exit status 0 passed, 1 failed (the program's log is printed), 77 skipped.
"""
import base64
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from waiting import Failure, wait_for  # noqa: E402

SKIP = 77
BUS_NAME = "fr.mirlo.Mirlo"


def jwt(claims):
    def part(value):
        return base64.urlsafe_b64encode(json.dumps(value).encode()).rstrip(b"=").decode()
    return f"{part({'alg': 'HS256', 'typ': 'JWT'})}.{part(claims)}.c2lnbmF0dXJl"


def sign_in_url(email, refresh):
    token = jwt({"email": email, "sub": "1", "exp": int(time.time()) + 3600})
    return f"mirlo://auth#access_token={token}&refresh_token={refresh}"


class Test:
    def __init__(self, mirlo):
        self.mirlo = mirlo
        self.work = tempfile.mkdtemp(prefix="mirlo-url-")
        home = os.path.join(self.work, "home")
        os.makedirs(home)
        # A service address nothing listens on: the sign-in callback needs no service, and the
        # program must not reach a real one.
        self.env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
                        XDG_DATA_HOME=os.path.join(home, "data"), MIRLO_SECRET_STORE="file",
                        MIRLO_TEST_SUPABASE_URL="http://127.0.0.1:9", LANG="C.UTF-8")
        self.secrets = os.path.join(home, "data", "mirlo", "secrets.json")
        self.logs = []
        self.running = None

    def start_program(self, *args):
        log_path = os.path.join(self.work, f"program-{len(self.logs)}.log")
        self.logs.append(log_path)
        log = open(log_path, "w")
        self.running = subprocess.Popen([self.mirlo, *args], env=self.env, stdout=log,
                                        stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        wait_for(lambda: self.running.poll() is not None or self.bus_name_owned(), 20,
                 "the program to own its name on the session bus")
        if self.running.poll() is not None:
            raise Failure(f"the program ended at start with status {self.running.returncode}")

    def stop_program(self):
        if self.running and self.running.poll() is None:
            self.running.send_signal(signal.SIGTERM)
            try:
                self.running.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.running.kill()
                self.running.wait()
                raise Failure("the program did not end on SIGTERM")
        wait_for(lambda: not self.bus_name_owned(), 10, "the bus name to be released")

    def bus_name_owned(self):
        result = subprocess.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus",
                                 "--object-path", "/org/freedesktop/DBus",
                                 "--method", "org.freedesktop.DBus.NameHasOwner", BUS_NAME],
                                capture_output=True, text=True)
        return "true" in result.stdout

    def second_start(self, argument):
        """A later start: it must end at once, successfully, leaving the program running."""
        started = time.monotonic()
        try:
            result = subprocess.run([self.mirlo, argument], env=self.env, capture_output=True, timeout=10)
        except subprocess.TimeoutExpired:
            raise Failure(f"a second start with {argument[:20]!r}… did not end")
        if result.returncode != 0:
            raise Failure(f"a second start ended with {result.returncode}: {result.stderr.decode(errors='replace')}")
        if self.running.poll() is not None:
            raise Failure("the running program ended when a second start handed it an address")
        return time.monotonic() - started

    def signed_in_as(self):
        result = subprocess.run([self.mirlo, "status"], env=self.env, capture_output=True, text=True, timeout=10)
        if result.returncode != 0:
            return None
        for line in result.stdout.splitlines():
            if line.startswith("Compte : "):
                return line[len("Compte : "):]
        return None

    # ------------------------------------------------------------------------------------------
    def run(self):
        if not shutil.which("gdbus"):
            print("gdbus is missing; skipping", file=sys.stderr)
            return SKIP

        self.start_program()

        # Foreign and malformed addresses reach the program and are dropped there (which ones the
        # program refuses is the core's, tested on the simulated desktop).
        for argument in ["https://exemple.fr/auth#access_token=a&refresh_token=r",
                         os.fsdecode(b"mirlo://auth#access_token=\xff\xfe&refresh_token=r")]:
            self.second_start(argument)
        # The handing over waits for the program to have taken the address, so nothing more can
        # come of these.
        if self.signed_in_as() is not None:
            raise Failure("a foreign or malformed address signed the person in")

        # The browser's sign-in: handed over, taken, stored.
        elapsed = self.second_start(sign_in_url("lea@exemple.fr", "r-lea"))
        if elapsed > 5:
            raise Failure(f"the second start took {elapsed:.1f} s to end")
        wait_for(lambda: self.signed_in_as() == "lea@exemple.fr", 10, "the session to be stored")

        # Started again without an address: one program still, and it keeps running.
        self.second_start_plain()

        # The way a browser hands the address over: through the installed desktop entry.
        self.through_desktop_entry()
        self.stop_program()

        # No program running: the start with the address becomes the program, already signed in.
        os.remove(self.secrets)
        self.start_program(sign_in_url("zoe@exemple.fr", "r-zoe"))
        wait_for(lambda: self.signed_in_as() == "zoe@exemple.fr", 10, "the session given at launch")
        if self.running.poll() is not None:
            raise Failure("the program started by an address did not keep running")
        self.stop_program()
        return 0

    def through_desktop_entry(self):
        if not shutil.which("xdg-mime") or not shutil.which("gio"):
            print("xdg-mime or gio is missing: the desktop entry is not tried", file=sys.stderr)
            return
        installer = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools",
                                 "install-desktop-entry")
        result = subprocess.run([installer, self.mirlo], env=self.env, capture_output=True, text=True, timeout=30)
        if result.returncode != 0:
            raise Failure(f"install-desktop-entry: {result.returncode} {result.stderr}")
        # `gio open` launches the handler as a GTK browser does, from the entry's Exec line.
        result = subprocess.run(["gio", "open", sign_in_url("max@exemple.fr", "r-max")], env=self.env,
                                capture_output=True, text=True, timeout=10)
        if result.returncode != 0:
            raise Failure(f"gio open: {result.returncode} {result.stderr}")
        wait_for(lambda: self.signed_in_as() == "max@exemple.fr", 10,
                 "the session handed over through the desktop entry")
        if self.running.poll() is not None:
            raise Failure("the running program ended when the desktop entry handed it an address")

    def second_start_plain(self):
        try:
            result = subprocess.run([self.mirlo], env=self.env, capture_output=True, timeout=10)
        except subprocess.TimeoutExpired:
            raise Failure("a second plain start did not end")
        if result.returncode != 0 or self.running.poll() is not None:
            raise Failure(f"a second plain start: status {result.returncode}, program running: "
                          f"{self.running.poll() is None}")


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 64
    test = Test(sys.argv[1])
    try:
        return test.run()
    except Failure as failure:
        print(f"FAILED: {failure}", file=sys.stderr)
        for path in test.logs:
            print(f"--- {path}", file=sys.stderr)
            with open(path, errors="replace") as f:
                sys.stderr.write(f.read())
        return 1
    finally:
        if test.running and test.running.poll() is None:
            test.running.kill()
            test.running.wait()
        shutil.rmtree(test.work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
