#!/usr/bin/python3
"""Mirlo end to end on a private X11 desktop (run under tests/linux/with-desktop.sh).

Starts the local service on a free loopback port, signs a person in through the program's own
command line, opens mousepad and the desktop program, then corrects French text the way a person
does: selected by keyboard, by mouse, Control+Shift+A, Control+Z; and in a mousepad whose
accessibility bridge is off, through the clipboard, whose text must come back afterwards.

    desktop_e2e.py SERVICE TWIN HOTKEY_PROBE ARTIFACT_DIR

Exit status 0 passed, 1 failed (a screenshot and the logs are left in ARTIFACT_DIR), 77 skipped.
"""
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from waiting import Failure, wait_for  # noqa: E402

SKIP = 77
EMAIL = "lea@exemple.fr"
PASSWORD = "mot de passe d'été 4411"
PERSONS_CLIPBOARD = "Le code de la porte : 4411 ✓"


def run(*args, check=True, **kwargs):
    return subprocess.run(list(args), check=check, capture_output=True, text=True, **kwargs)


def xdotool(*args):
    return run("xdotool", *args).stdout.strip()


class E2E:
    def __init__(self, service, twin, probe, artifacts):
        self.service_bin, self.twin, self.probe, self.artifacts = service, twin, probe, artifacts
        self.work = tempfile.mkdtemp(prefix="mirlo-e2e-")
        self.children = []
        home = os.path.join(self.work, "home")
        os.makedirs(home)
        self.env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
                        XDG_DATA_HOME=os.path.join(home, "data"), MIRLO_SECRET_STORE="file",
                        LANG="C.UTF-8")
        self.env.pop("NO_AT_BRIDGE", None)

    # --- processes -------------------------------------------------------------------------
    def start(self, name, args, env=None, stdin=None):
        log = open(os.path.join(self.work, name + ".log"), "w")
        child = subprocess.Popen(args, env=env or self.env, stdout=log, stderr=subprocess.STDOUT,
                                 stdin=stdin if stdin is not None else subprocess.DEVNULL)
        self.children.append((name, child))
        return child

    def stop_all(self):
        for name, child in reversed(self.children):
            if child.poll() is None:
                child.send_signal(signal.SIGTERM)
                try:
                    child.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    child.kill()
                    child.wait()

    def keep_evidence(self):
        os.makedirs(self.artifacts, exist_ok=True)
        subprocess.run(["import", "-window", "root", os.path.join(self.artifacts, "screen.png")],
                       capture_output=True)
        for entry in os.listdir(self.work):
            if entry.endswith(".log") or entry.endswith(".txt"):
                shutil.copy(os.path.join(self.work, entry), self.artifacts)
        print(f"screenshot and logs in {self.artifacts}", file=sys.stderr)

    # --- the service and the account -------------------------------------------------------
    def start_service(self):
        for _ in range(5):
            with socket.socket() as s:
                s.bind(("127.0.0.1", 0))
                port = s.getsockname()[1]
            data = os.path.join(self.work, "service-data")
            child = self.start("service", [self.service_bin, "--port", str(port), "--data-dir", data])

            def listening():
                if child.poll() is not None:
                    return "ended"
                try:
                    with socket.create_connection(("127.0.0.1", port), timeout=0.2):
                        return "up"
                except OSError:
                    return None

            if wait_for(listening, 20, "the service to listen") == "up":
                self.service_data = data
                self.env["MIRLO_TEST_SUPABASE_URL"] = f"http://127.0.0.1:{port}"
                return
        raise Failure("the service could not listen on any free port")

    def sign_in(self):
        for command in ("signup", "login"):
            result = run(self.twin, command, EMAIL, input=PASSWORD + "\n", env=self.env, check=False)
            if result.returncode != 0:
                raise Failure(f"mirlo {command}: {result.returncode} {result.stderr}")
        # Three corrections a day on the free plan; this test makes more.
        run(self.service_bin, "--data-dir", self.service_data, "--set-plan", EMAIL, "pro_mensuel")
        # The person has been through the welcome steps before.
        config = os.path.join(self.env["XDG_CONFIG_HOME"], "mirlo")
        os.makedirs(config, exist_ok=True)
        with open(os.path.join(config, "defaults.json"), "w") as f:
            f.write('{"onboarded": true}\n')

    # --- the editor --------------------------------------------------------------------------
    def open_editor(self, name, accessible):
        path = os.path.join(self.work, name + ".txt")
        open(path, "w").close()
        env = dict(self.env, XDG_CONFIG_HOME=os.path.join(self.work, name + "-config"))
        if not accessible:
            env["NO_AT_BRIDGE"] = "1"
        child = self.start(name, ["mousepad", "--disable-server", path], env=env)
        wait_for(lambda: self.window_of(child.pid), 30, f"the {name} window")

        def in_front():
            window = self.window_of(child.pid)
            if window:
                run("xdotool", "windowactivate", window, check=False)
            active = run("xdotool", "getactivewindow", "getwindowpid", check=False).stdout.strip()
            return window if active == str(child.pid) else None

        window = wait_for(in_front, 20, f"{name} in front")
        return child, path, window

    @staticmethod
    def window_of(pid):
        result = run("xdotool", "search", "--onlyvisible", "--pid", str(pid), check=False)
        windows = result.stdout.split()
        return windows[0] if windows else None

    # --- AT-SPI ------------------------------------------------------------------------------
    @staticmethod
    def text_accessible(pid):
        """The first text view of the process's accessibility tree, or None."""
        import pyatspi
        for application in pyatspi.Registry.getDesktop(0):
            try:
                if application is None or application.get_process_id() != pid:
                    continue
            except Exception:
                continue
            view = pyatspi.findDescendant(application, lambda a: a.getRole() == pyatspi.ROLE_TEXT)
            if view is not None:
                return view
        return None

    def text_view(self, pid):
        view = self.text_accessible(pid)
        return view.queryText() if view is not None else None

    def editor_text(self, pid):
        view = self.text_view(pid)
        return view.getText(0, -1) if view is not None else None

    def extents(self, pid, offset):
        import pyatspi
        return self.text_view(pid).getCharacterExtents(offset, pyatspi.DESKTOP_COORDS)

    # --- the person ----------------------------------------------------------------------
    def type_text(self, text):
        xdotool("type", "--delay", "20", text)

    def press(self, *keys):
        xdotool("key", "--clearmodifiers", *keys)

    def fix_hot_key(self):
        # Pressed and released like a person: Mirlo waits for the modifiers to be let go.
        xdotool("key", "ctrl+shift+a")

    # --- the story ---------------------------------------------------------------------------
    def accessibility_path(self):
        editor, _, _ = self.open_editor("editor", accessible=True)
        first = "Il fait tres beau et je voudrais un cafe."
        second = "Elle a une belle maisom et le chatt dort."
        self.type_text(first)
        self.press("Return")
        self.type_text(second)
        original = first + "\n" + second
        wait_for(lambda: self.editor_text(editor.pid) == original, 20, "the typed text in the editor")

        # By keyboard: the first line, from its start to its end.
        self.press("ctrl+Home")
        self.press("shift+End")
        self.fix_hot_key()
        corrected_first = wait_for(
            lambda: (t := self.editor_text(editor.pid)) != original and t, 30, "the first line corrected")
        if corrected_first != "Il fait très beau et je voudrais un café.\n" + second:
            raise Failure(f"the first line was not corrected in place: {corrected_first!r}")

        # Control+Z within the minute gives the original back.
        self.press("ctrl+z")
        wait_for(lambda: self.editor_text(editor.pid) == original, 15, "Control+Z to bring the original back")

        # By mouse: drag across "belle maisom et le chatt" on the second line.
        start = original.index("belle")
        end = original.index(" dort")
        x1, y1, _, h1 = self.extents(editor.pid, start)
        x2, y2, w2, h2 = self.extents(editor.pid, end - 1)
        xdotool("mousemove", str(x1 + 1), str(y1 + h1 // 2), "mousedown", "1")
        xdotool("mousemove", str((x1 + x2) // 2), str(y1 + h1 // 2))
        xdotool("mousemove", str(x2 + w2 - 1), str(y2 + h2 // 2), "mouseup", "1")
        view = self.text_view(editor.pid)
        wait_for(lambda: view.getNSelections() == 1 and view.getSelection(0) == (start, end), 10,
                 "the mouse selection")
        # The selection made with the mouse is offered the card, next to it.
        card = wait_for(lambda: self.window_of(self.mirlo.pid), 10, "the card next to the mouse selection")
        geometry = dict(line.split("=", 1) for line in
                        run("xdotool", "getwindowgeometry", "--shell", card).stdout.split())
        left, top, width = int(geometry["X"]), int(geometry["Y"]), int(geometry["WIDTH"])
        if not (left <= x2 + w2 <= left + width and y2 + h2 <= top <= y2 + h2 + 60):
            raise Failure(f"the card at ({left}, {top}), {width} wide, is not just below the selection's end "
                          f"({x2 + w2}, {y2 + h2})")
        self.fix_hot_key()
        corrected_second = wait_for(
            lambda: (t := self.editor_text(editor.pid)) != original and t, 30, "the mouse selection corrected")
        if corrected_second != first + "\nElle a une belle maison et le chat dort.":
            raise Failure(f"the mouse selection was not corrected in place: {corrected_second!r}")
        print("accessibility path: keyboard, Control+Z and mouse corrections in place")

    def clipboard_path(self):
        editor, path, window = self.open_editor("blind-editor", accessible=False)
        sentence = "Il fait tres beau."
        self.type_text(sentence)
        # Saved once, so that the title's mark tells when the correction has been pasted.
        self.press("ctrl+s")
        wait_for(lambda: self.title(window) and not self.title(window).startswith("*"), 10, "the file saved")
        # xclip stays behind to serve the clipboard: its output must not be waited on.
        subprocess.run(["xclip", "-selection", "clipboard", "-i"], input=PERSONS_CLIPBOARD, text=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True, env=self.env)
        wait_for(lambda: self.clipboard() == PERSONS_CLIPBOARD, 10, "the person's clipboard")

        self.press("ctrl+a")
        self.fix_hot_key()
        wait_for(lambda: self.title(window).startswith("*"), 30, "the correction pasted into the editor")
        # The person's text comes back once the paste is done; only then is it safe to save.
        wait_for(lambda: self.clipboard() == PERSONS_CLIPBOARD, 10, "the person's clipboard text to come back")
        self.press("ctrl+s")
        wait_for(lambda: not self.title(window).startswith("*"), 10, "the corrected file saved")
        with open(path, encoding="utf-8") as f:
            corrected = f.read().rstrip("\n")
        if corrected != "Il fait très beau.":
            raise Failure(f"the clipboard path did not replace the selection: {corrected!r}")
        print("clipboard path: corrected through copy and paste, the clipboard given back")

    @staticmethod
    def title(window):
        return run("xdotool", "getwindowname", window, check=False).stdout.strip()

    def clipboard(self):
        return run("xclip", "-o", "-selection", "clipboard", check=False, timeout=5).stdout

    def taken_hot_key(self, mirlo):
        """Another program holds Control+Shift+A when Mirlo starts: Mirlo says so and keeps running."""
        mirlo.send_signal(signal.SIGTERM)
        mirlo.wait(timeout=10)
        holder = self.start("holder", [self.probe, "--hold"])
        wait_for(lambda: "held" in self.log("holder"), 10, "the other program to take the hot key")
        again = self.start("mirlo-again", [self.twin])
        wait_for(lambda: "Ctrl+Maj+A est déjà pris" in self.log("mirlo-again"), 20,
                 "the program to say that its hot key is taken")
        if again.poll() is not None:
            raise Failure(f"the program ended with status {again.returncode} when its hot key was taken")
        holder.send_signal(signal.SIGTERM)
        print("taken hot key: said once, the program keeps running")

    def log(self, name):
        with open(os.path.join(self.work, name + ".log"), encoding="utf-8", errors="replace") as f:
            return f.read()

    def main(self):
        self.start_service()
        self.sign_in()
        mirlo = self.mirlo = self.start("mirlo", [self.twin])
        wait_for(lambda: mirlo.poll() is not None or run(self.probe, check=False).returncode == 0, 30,
                 "the program to hold its hot key")
        if mirlo.poll() is not None:
            raise Failure(f"the program ended at start with status {mirlo.returncode}")
        self.accessibility_path()
        self.clipboard_path()
        if mirlo.poll() is not None:
            raise Failure(f"the program ended with status {mirlo.returncode}")
        self.taken_hot_key(mirlo)


def main():
    if len(sys.argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        import pyatspi  # noqa: F401
    except ImportError:
        print("desktop_e2e: python3-pyatspi is missing (tools/setup installs it); skipping", file=sys.stderr)
        return SKIP
    for tool in ("mousepad", "xdotool", "xclip"):
        if not shutil.which(tool):
            print(f"desktop_e2e: {tool} is missing (tools/setup installs it); skipping", file=sys.stderr)
            return SKIP
    if not os.environ.get("DISPLAY"):
        print("desktop_e2e: no display (run under tests/linux/with-desktop.sh); skipping", file=sys.stderr)
        return SKIP
    test = E2E(*sys.argv[1:])
    try:
        test.main()
        return 0
    except Exception as failure:  # a failed check or a tool that broke down: the same evidence
        print(f"FAILED: {failure!r}", file=sys.stderr)
        test.keep_evidence()
        return 1
    finally:
        test.stop_all()
        if os.environ.get("MIRLO_E2E_KEEP") != "1":
            shutil.rmtree(test.work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
