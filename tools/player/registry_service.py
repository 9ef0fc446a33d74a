#!/usr/bin/python3
"""Development registry service: com.ombalabs.Registry over a JSON file.

Usage: registry_service.py STORE [--address ADDRESS] [--limit BYTES]

The store file holds one JSON object {section: {key: value}} with string
values; a missing file is an empty store. Every change (Write, DeleteKey,
DeleteSection, DeleteAll, WriteJson) and Flush rewrite the file atomically.

Rules, with the error each breach gives:
- Section and key names are 1 to 255 characters from letters, digits, '.',
  '_' and '-' (".omba", "eth0.10", "dhcp_server" are fine; "", "a b", "a/b"
  are not): com.ombalabs.Registry.Errors.InvalidName.
- The store, serialised as compact JSON in UTF-8, may not grow beyond
  --limit bytes (default 65536); a change that would exceed it is refused
  and leaves the store as it was: com.ombalabs.Registry.Errors.Full.
- WriteJson takes an object of objects of strings and merges it into the
  store (sections and keys in the text replace existing ones); any other
  text: com.ombalabs.Registry.Errors.InvalidJson.

Reading a key that does not exist gives ""; listing the keys of a missing
section gives an empty map; deleting what does not exist is no error.

The service owns the name on the system bus (the one DBUS_SYSTEM_BUS_ADDRESS
names, if set) or on the bus at --address, then prints "ready" on standard
output. SIGTERM and SIGINT end it with status 0.
"""

import argparse
import copy
import json
import os
import re
import signal
import sys
import tempfile

import dbus
import dbus.bus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

BUS_NAME = "com.ombalabs.Registry"
OBJECT_PATH = "/com/ombalabs/Registry"
INTERFACE = "com.ombalabs.Registry"
ERRORS = "com.ombalabs.Registry.Errors."

NAME_PATTERN = re.compile(r"[A-Za-z0-9._-]{1,255}")


class RegistryError(dbus.exceptions.DBusException):
    def __init__(self, kind, message):
        super().__init__(message, name=ERRORS + kind)


def check_name(name):
    if not NAME_PATTERN.fullmatch(name):
        raise RegistryError("InvalidName", f"invalid name {name!r}")


class Store:
    def __init__(self, path, limit):
        self.path = path
        self.limit = limit
        self.data = {}
        if os.path.exists(path):
            with open(path, encoding="utf-8") as stream:
                self.data = self.validated(json.load(stream))

    @staticmethod
    def validated(data):
        if not isinstance(data, dict):
            raise ValueError("the store must be a JSON object")
        for section, keys in data.items():
            if not isinstance(keys, dict):
                raise ValueError(f"section {section!r} is not an object")
            check_name(section)
            for key, value in keys.items():
                check_name(key)
                if not isinstance(value, str):
                    raise ValueError(f"value of {section}/{key} is not a string")
        return data

    def serialised(self, data):
        return json.dumps(data, sort_keys=True, separators=(",", ":"), ensure_ascii=False)

    def commit(self, data):
        """Replaces the store by data if it fits, and writes the file."""
        if len(self.serialised(data).encode("utf-8")) > self.limit:
            raise RegistryError("Full", f"registry would exceed {self.limit} bytes")
        self.data = data
        self.save()

    def save(self):
        directory = os.path.dirname(os.path.abspath(self.path))
        fd, temporary = tempfile.mkstemp(dir=directory, prefix=".registry-")
        try:
            with os.fdopen(fd, "w", encoding="utf-8") as stream:
                json.dump(self.data, stream, sort_keys=True, indent=1, ensure_ascii=False)
                stream.write("\n")
                stream.flush()
                os.fsync(stream.fileno())
            os.replace(temporary, self.path)
        except BaseException:
            os.unlink(temporary)
            raise


class RegistryObject(dbus.service.Object):
    def __init__(self, connection, store):
        super().__init__(connection, OBJECT_PATH)
        self.store = store

    @dbus.service.method(INTERFACE, in_signature="", out_signature="s")
    def ReadAllJson(self):
        return self.store.serialised(self.store.data)

    @dbus.service.method(INTERFACE, in_signature="s", out_signature="")
    def WriteJson(self, text):
        try:
            incoming = json.loads(text)
        except ValueError as error:
            raise RegistryError("InvalidJson", str(error)) from None
        if not isinstance(incoming, dict) or not all(
            isinstance(keys, dict) and all(isinstance(v, str) for v in keys.values())
            for keys in incoming.values()
        ):
            raise RegistryError("InvalidJson", "expected an object of objects of strings")
        data = copy.deepcopy(self.store.data)
        for section, keys in incoming.items():
            check_name(section)
            for key in keys:
                check_name(key)
            data.setdefault(section, {}).update(keys)
        self.store.commit(data)

    @dbus.service.method(INTERFACE, in_signature="ss", out_signature="s")
    def Read(self, section, key):
        check_name(section)
        check_name(key)
        return self.store.data.get(section, {}).get(key, "")

    @dbus.service.method(INTERFACE, in_signature="sss", out_signature="")
    def Write(self, section, key, value):
        check_name(section)
        check_name(key)
        data = copy.deepcopy(self.store.data)
        data.setdefault(section, {})[key] = str(value)
        self.store.commit(data)

    @dbus.service.method(INTERFACE, in_signature="ss", out_signature="b")
    def KeyExists(self, section, key):
        check_name(section)
        check_name(key)
        return key in self.store.data.get(section, {})

    @dbus.service.method(INTERFACE, in_signature="s", out_signature="b")
    def SectionExists(self, section):
        check_name(section)
        return section in self.store.data

    @dbus.service.method(INTERFACE, in_signature="ss", out_signature="")
    def DeleteKey(self, section, key):
        check_name(section)
        check_name(key)
        data = copy.deepcopy(self.store.data)
        data.get(section, {}).pop(key, None)
        self.store.commit(data)

    @dbus.service.method(INTERFACE, in_signature="s", out_signature="")
    def DeleteSection(self, section):
        check_name(section)
        data = copy.deepcopy(self.store.data)
        data.pop(section, None)
        self.store.commit(data)

    @dbus.service.method(INTERFACE, in_signature="", out_signature="")
    def DeleteAll(self):
        self.store.commit({})

    @dbus.service.method(INTERFACE, in_signature="", out_signature="as")
    def SectionList(self):
        return dbus.Array(sorted(self.store.data), signature="s")

    @dbus.service.method(INTERFACE, in_signature="s", out_signature="a{ss}")
    def KeyList(self, section):
        check_name(section)
        return dbus.Dictionary(self.store.data.get(section, {}), signature="ss")

    @dbus.service.method(INTERFACE, in_signature="", out_signature="")
    def Flush(self):
        self.store.save()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("store", help="JSON file holding the settings")
    parser.add_argument("--address", help="bus address (default: the system bus)")
    parser.add_argument("--limit", type=int, default=64 * 1024,
                        help="largest store in bytes of compact JSON")
    options = parser.parse_args()

    store = Store(options.store, options.limit)
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    if options.address:
        connection = dbus.bus.BusConnection(options.address)
    else:
        connection = dbus.SystemBus()
    loop = GLib.MainLoop()
    for number in (signal.SIGTERM, signal.SIGINT):
        GLib.unix_signal_add(GLib.PRIORITY_HIGH, number, loop.quit)

    service = RegistryObject(connection, store)
    name = dbus.service.BusName(BUS_NAME, connection, do_not_queue=True)
    print("ready", flush=True)
    loop.run()
    del name
    service.remove_from_connection()
    return 0


if __name__ == "__main__":
    sys.exit(main())
