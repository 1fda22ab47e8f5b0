#!/usr/bin/env python3
"""Plays a desktop panel on a private session bus against the program's status item.

Owns org.kde.StatusNotifierWatcher, receives the item's registration, reads what a panel shows
(title, label, status, the menu exported over com.canonical.dbusmenu) and clicks entries the way a
panel does. Run inside tests/linux/with-desktop.sh: python3 status_item_host.py PROGRAM
"""
import os
import subprocess
import sys
import threading
import time
import unittest

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

PROGRAM = None
NO_HOST = "no status-notifier host"

WATCHER_XML = """
<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
    <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <property name="ProtocolVersion" type="i" access="read"/>
    <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
    <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
    <signal name="StatusNotifierHostRegistered"/>
  </interface>
</node>
"""


def pump_until(condition, seconds):
    """Runs the main context until condition() holds; its last value."""
    context = GLib.MainContext.default()
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        while context.pending():
            context.iteration(False)
        value = condition()
        if value:
            return value
        time.sleep(0.02)
    return condition()


class Watcher:
    """The panel's side: the watcher name, and the items that registered with it."""

    def __init__(self, bus):
        self.bus = bus
        self.items = []  # (bus name, object path)
        self.owned = False
        info = Gio.DBusNodeInfo.new_for_xml(WATCHER_XML).interfaces[0]
        self.registration = bus.register_object("/StatusNotifierWatcher", info, self._call, self._get, None)
        self.owner = Gio.bus_own_name_on_connection(
            bus, "org.kde.StatusNotifierWatcher", Gio.BusNameOwnerFlags.NONE, self._acquired, None)
        if not pump_until(lambda: self.owned, 5):
            raise RuntimeError("could not own the watcher name")

    def _acquired(self, *_):
        self.owned = True

    def _call(self, _bus, sender, _path, _iface, method, params, invocation):
        if method == "RegisterStatusNotifierItem":
            service = params.unpack()[0]
            # Items send either their object path (the sender is then the bus name) or a bus name.
            if service.startswith("/"):
                self.items.append((sender, service))
            else:
                self.items.append((service, "/StatusNotifierItem"))
        invocation.return_value(None)

    def _get(self, _bus, _sender, _path, _iface, name):
        return {
            "RegisteredStatusNotifierItems": GLib.Variant("as", [i[0] + i[1] for i in self.items]),
            "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
            "ProtocolVersion": GLib.Variant("i", 0),
        }[name]

    def close(self):
        Gio.bus_unown_name(self.owner)
        self.bus.unregister_object(self.registration)


class Program:
    """The program under test, its output lines collected as they come."""

    def __init__(self, *args):
        self.process = subprocess.Popen([PROGRAM, *args], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        text=True, encoding="utf-8")
        self.lines, self.err = [], []
        self.readers = [threading.Thread(target=self._read, args=(self.process.stdout, self.lines), daemon=True),
                        threading.Thread(target=self._read, args=(self.process.stderr, self.err), daemon=True)]
        for reader in self.readers:
            reader.start()
        if not pump_until(lambda: "ready" in self.lines or self.process.poll() is not None, 20):
            raise RuntimeError("the program did not start")
        if self.process.poll() is not None:
            raise RuntimeError("the program ended at start: " + "".join(self.err))

    @staticmethod
    def _read(stream, into):
        for line in stream:
            into.append(line.rstrip("\n"))

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait(5)
        for reader in self.readers:
            reader.join(2)
        self.process.stdout.close()
        self.process.stderr.close()


class Item:
    """The registered item seen from the panel: its properties and its menu."""

    def __init__(self, bus, name, path):
        self.bus, self.name, self.path = bus, name, path

    def _call(self, path, iface, method, params, reply):
        result = self.bus.call_sync(self.name, path, iface, method, params, GLib.VariantType(reply),
                                    Gio.DBusCallFlags.NONE, 5000, None)
        return result.unpack()

    def properties(self):
        return self._call(self.path, "org.freedesktop.DBus.Properties", "GetAll",
                          GLib.Variant("(s)", ("org.kde.StatusNotifierItem",)), "(a{sv})")[0]

    def menu(self):
        """The top level entries: dicts with id and the dbusmenu properties, defaults filled in."""
        menu_path = self.properties()["Menu"]
        _, (_, _, children) = self._call(menu_path, "com.canonical.dbusmenu", "GetLayout",
                                         GLib.Variant("(iias)", (0, -1, [])), "(u(ia{sv}av))")
        entries = []
        for child_id, props, _ in children:
            entry = {"id": child_id, "label": "", "enabled": True, "visible": True, "type": "standard"}
            entry.update(props)
            entries.append(entry)
        return [e for e in entries if e["visible"]]

    def click(self, label, ends_program=False):
        menu_path = self.properties()["Menu"]
        entry = next(e for e in self.menu() if e["label"] == label)
        try:
            self._call(menu_path, "com.canonical.dbusmenu", "Event",
                       GLib.Variant("(isvu)", (entry["id"], "clicked", GLib.Variant("i", 0), 0)), "()")
        except GLib.Error as error:
            # An entry that ends the program may end it before the click is answered.
            if not (ends_program and "NoReply" in error.message):
                raise


def lines(entries):
    """The menu as a panel draws it: one line per entry, like the core's own menu tests."""
    out = []
    for e in entries:
        if e["type"] == "separator":
            out.append("---")
            continue
        line = e["label"]
        if not e["enabled"]:
            line += " [off]"
        if e.get("toggle-type") == "checkmark":
            line += " [x]" if e.get("toggle-state") == 1 else " [ ]"
        for keys in e.get("shortcut", []):
            line += " " + "+".join(keys)
        out.append(line)
    return out


SIGNED_IN = [
    "lea@example.fr [off]",
    "Gratuit · 3 corrections par jour [off]",
    "---",
    "Corriger la sélection Control+Shift+a",
    "Reformuler la sélection Control+Shift+c",
    "---",
    "Popup à la sélection [x]",
    "Mon dashboard",
    "Réglages… Control+comma",
    "---",
    "Quitter Mirlo Control+q",
]


class StatusItemOnAPanel(unittest.TestCase):
    def setUp(self):
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
        self.programs, self.watcher = [], None

    def tearDown(self):
        for program in self.programs:
            program.stop()
        if self.watcher:
            self.watcher.close()

    def start(self, *args):
        program = Program(*args)
        self.programs.append(program)
        return program

    def registered_item(self):
        if not pump_until(lambda: self.watcher.items, 10):
            self.fail("the item never registered with the watcher; the program said: " +
                      " | ".join(line for program in self.programs for line in program.err))
        name, path = self.watcher.items[-1]
        return Item(self.bus, name, path)

    def test_a_panel_that_comes_later_gets_the_item_and_drives_the_core(self):
        program = self.start()
        # No panel yet: one line says so, and the program keeps running.
        pump_until(lambda: any(NO_HOST in line for line in program.err), 5)
        self.assertEqual(sum(NO_HOST in line for line in program.err), 1, program.err)
        self.assertIsNone(program.process.poll())  # and the panel found below proves it still runs

        self.watcher = Watcher(self.bus)
        item = self.registered_item()
        props = item.properties()
        self.assertEqual(props["Title"], "Mirlo")
        self.assertEqual(props["Status"], "Active")
        self.assertEqual(props["XAyatanaLabel"], "M")
        self.assertEqual(lines(item.menu()), SIGNED_IN)

        # The popup switch: the core flips it and the panel's next look shows the check mark off.
        item.click("Popup à la sélection")
        self.assertTrue(pump_until(lambda: "Popup à la sélection [ ]" in lines(item.menu()), 5), lines(item.menu()))
        item.click("Popup à la sélection")
        self.assertTrue(pump_until(lambda: "Popup à la sélection [x]" in lines(item.menu()), 5), lines(item.menu()))

        # The dashboard opens the account page in the browser.
        item.click("Mon dashboard")
        self.assertTrue(pump_until(lambda: any(l.startswith("opened ") for l in program.lines), 5))
        self.assertTrue([l for l in program.lines if l.startswith("opened ")][0].endswith("/compte.html"))

        # A disabled line does nothing; quitting ends the program cleanly.
        # The click is a call the program answers: once it returns, the program has handled it.
        opened = [l for l in program.lines if l.startswith("opened ")]
        item.click("lea@example.fr")
        self.assertIsNone(program.process.poll())
        self.assertEqual([l for l in program.lines if l.startswith("opened ")], opened)
        item.click("Quitter Mirlo", ends_program=True)
        self.assertTrue(pump_until(lambda: program.process.poll() is not None, 5), "still running after Quitter")
        self.assertEqual(program.process.returncode, 0)
        self.assertEqual(sum(NO_HOST in line for line in program.err), 1, program.err)

    def test_an_update_offer_shows_in_the_label_and_first_in_the_menu(self):
        self.watcher = Watcher(self.bus)
        program = self.start("--update")
        item = self.registered_item()
        self.assertTrue(pump_until(lambda: item.properties()["XAyatanaLabel"] == "M\u2022", 5),
                        item.properties()["XAyatanaLabel"])
        shown = lines(item.menu())
        self.assertEqual(shown[:2], ["Mettre à jour vers la version 1.10…", "---"])
        self.assertEqual(shown[2:], SIGNED_IN)
        self.assertFalse(any(NO_HOST in line for line in program.err), program.err)
        item.click("Mettre à jour vers la version 1.10…")
        self.assertTrue(pump_until(lambda: any(l.startswith("opened ") for l in program.lines), 5))
        self.assertTrue([l for l in program.lines if l.startswith("opened ")][0].endswith("/Mirlo.dmg"), program.lines)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit("usage: status_item_host.py PROGRAM")
    PROGRAM = sys.argv.pop(1)
    if not os.environ.get("DBUS_SESSION_BUS_ADDRESS"):
        sys.exit("no session bus: run inside tests/linux/with-desktop.sh")
    unittest.main(verbosity=2)
