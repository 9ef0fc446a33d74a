"""A dbusmock double of wpa_supplicant for what the real daemon cannot do here (nl80211,
associated states, BSSs, wrong-typed replies, injected errors): both the dbusmock template,
which records every call (Properties Get/Set too), and the test side's SupplicantDouble."""

import collections
import contextlib
import itertools
import json
import os

import dbus
import dbus.bus
import dbus.service
from dbusmock.mockobject import DBusMockObject, objects

BUS_NAME = "fi.w1.wpa_supplicant1"
MAIN_OBJ = "/fi/w1/wpa_supplicant1"
MAIN_IFACE = "fi.w1.wpa_supplicant1"
SYSTEM_BUS = True

INTERFACE_IFACE = MAIN_IFACE + ".Interface"
NETWORK_IFACE = MAIN_IFACE + ".Network"
BSS_IFACE = MAIN_IFACE + ".BSS"
MOCK_IFACE = "org.freedesktop.DBus.Mock"
CONTROL_IFACE = "fi.w1.wpa_supplicant1.Double"
ERROR = MAIN_IFACE + "."

# --- the template side: runs in the dbusmock process ---

_root = None


def _record(obj, interface, member, signature, args):
    _root.journal.append((dbus.ObjectPath(obj.path), interface, member, signature,
                          dbus.Array(list(args), signature="v")))
    keys = {member, f"{member}:{args[1] if len(args) > 1 else ''}"}  # Get:NAME for properties
    for failure in _root.failures:
        path, key, name, message, count = failure
        if key in keys and path in ("", obj.path) and count != 0:
            failure[4] = count - 1
            raise dbus.exceptions.DBusException(message, name=name)


def _install_journal():
    """Routes every mocked method and the Properties calls through _record."""
    mock_method = DBusMockObject.mock_method
    plain_get = DBusMockObject.Get

    def journaled_method(self, interface, member, in_signature, *args, **kwargs):
        if interface not in (MOCK_IFACE, CONTROL_IFACE):
            _record(self, interface, member, in_signature, args)
        return mock_method(self, interface, member, in_signature, *args, **kwargs)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def get(self, interface_name, property_name):
        _record(self, dbus.PROPERTIES_IFACE, "Get", "ss", (interface_name, property_name))
        return plain_get(self, interface_name, property_name)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ssv", out_signature="")
    def set_(self, interface_name, property_name, value):
        _record(self, dbus.PROPERTIES_IFACE, "Set", "ssv", (interface_name, property_name, value))
        self.props[interface_name][property_name] = value

    get.__name__, set_.__name__ = "Get", "Set"
    DBusMockObject.mock_method, DBusMockObject.Get, DBusMockObject.Set = journaled_method, get, set_


def _interface_methods():
    numbers, blobs = itertools.count(), set()

    def add_network(self, args):
        path = f"{self.path}/Networks/{next(numbers)}"
        # The daemon shows every network property as a string, byte arrays in hex.
        props = {k: bytes(v).hex() if isinstance(v, list) else str(v) for k, v in args.items()}
        props = {"Properties": dbus.Dictionary(props, signature="sv", variant_level=1)}
        _root.AddObject(path, NETWORK_IFACE, props, [])
        networks = list(self.props[INTERFACE_IFACE]["Networks"]) + [dbus.ObjectPath(path)]
        self.props[INTERFACE_IFACE]["Networks"] = dbus.Array(networks, signature="o")
        return dbus.ObjectPath(path)

    def remove_network(self, path):
        networks = [n for n in self.props[INTERFACE_IFACE]["Networks"] if n != path]
        self.props[INTERFACE_IFACE]["Networks"] = dbus.Array(networks, signature="o")

    def select_network(self, path):
        self.props[INTERFACE_IFACE]["CurrentNetwork"] = dbus.ObjectPath(path)

    def remove_blob(self, name):
        if name not in blobs:
            raise dbus.exceptions.DBusException(name, name=ERROR + "BlobUnknown")
        blobs.remove(name)

    signal = {"rssi": dbus.Int32(-50), "linkspeed": dbus.Int32(54), "frequency": dbus.UInt32(2412)}
    return [("AddNetwork", "a{sv}", "o", add_network), ("RemoveNetwork", "o", "", remove_network),
            ("SelectNetwork", "o", "", select_network), ("RemoveBlob", "s", "", remove_blob),
            ("AddBlob", "say", "", lambda self, name, _: blobs.add(name)),
            ("Scan", "a{sv}", "", lambda self, args: None),
            ("SignalPoll", "", "a{sv}", lambda self: dbus.Dictionary(signal, signature="sv"))]


def _create_interface(ifname):
    paths = _root.interfaces
    path = f"{MAIN_OBJ}/Interfaces/{len(paths)}"
    props = {"State": dbus.String("disconnected", variant_level=1),
             "Scanning": dbus.Boolean(False, variant_level=1),
             "CurrentBSS": dbus.ObjectPath("/", variant_level=1),
             "CurrentNetwork": dbus.ObjectPath("/", variant_level=1),
             "BSSs": dbus.Array([], signature="o", variant_level=1),
             "Networks": dbus.Array([], signature="o", variant_level=1),
             "Ifname": dbus.String(ifname, variant_level=1)}
    _root.AddObject(path, INTERFACE_IFACE, props, _interface_methods())
    paths[ifname] = path
    _root.props[MAIN_IFACE]["Interfaces"] = dbus.Array(paths.values(), signature="o")
    return dbus.ObjectPath(path)


def load(mock, parameters):
    """parameters: {"interfaces": [ifname, ...]} that the daemon already manages."""
    global _root  # pylint: disable=global-statement
    _root = mock
    _install_journal()
    mock.journal, mock.failures, mock.interfaces = [], [], {}
    mock.AddProperties(MAIN_IFACE, {"DebugLevel": dbus.String("info", variant_level=1),
                                    "Interfaces": dbus.Array([], signature="o", variant_level=1)})

    def get_interface(self, ifname):
        if ifname not in _root.interfaces:
            message = "wpa_supplicant knows nothing about this interface."
            raise dbus.exceptions.DBusException(message, name=ERROR + "InterfaceUnknown")
        return dbus.ObjectPath(_root.interfaces[ifname])

    def create_interface(self, args):
        return _create_interface(str(args["Ifname"]))

    mock.AddMethods(MAIN_IFACE, [("GetInterface", "s", "o", get_interface),
                                 ("CreateInterface", "a{sv}", "o", create_interface)])

    # Control methods for the test side.
    def get_journal(self):
        return dbus.Array(_root.journal, signature="(ossgav)")

    def clear(self):
        _root.journal, _root.failures = [], []

    def fail(self, path, member, name, message, count):
        _root.failures.append([str(path), str(member), str(name), str(message), int(count)])

    def set_object_property(self, path, interface, name, value):  # "": the object's own
        objects[path].props.setdefault(str(interface) or objects[path].interface, {})[name] = value

    mock.AddMethods(CONTROL_IFACE, [("GetJournal", "", "a(ossgav)", get_journal),
                                    ("Clear", "", "", clear), ("Fail", "ssssi", "", fail),
                                    ("SetObjectProperty", "ossv", "", set_object_property)])

    for ifname in parameters.get("interfaces", []):
        _create_interface(str(ifname))


# --- the test side ---

# The types that arguments of the client's calls have.
SIGNATURES = {dbus.Boolean: "b", dbus.Int32: "i", dbus.UInt32: "u", dbus.ObjectPath: "o",
              dbus.String: "s"}


def signature_of(value):
    """The D-Bus signature of an argument (an array or basic value) as dbus-python has it."""
    return "a" + value.signature if isinstance(value, dbus.Array) else SIGNATURES[type(value)]


def plain(value):
    """The value as ordinary Python data (byte arrays as bytes)."""
    if getattr(value, "signature", None) == "y":
        return bytes(value)
    if isinstance(value, dbus.Dictionary):
        return {plain(k): plain(v) for k, v in value.items()}
    if isinstance(value, dbus.Array):
        return [plain(v) for v in value]
    return str(value) if isinstance(value, str) else int(value)  # String and ObjectPath are str


def typed(value):
    """(signature, plain value); a{sv} becomes {key: (signature, plain value)}."""
    if isinstance(value, dbus.Dictionary) and value.signature == "sv":
        return {str(k): typed(v) for k, v in value.items()}
    return (signature_of(value), plain(value))


Call = collections.namedtuple("Call", "path interface member signature args")
Call.typed = lambda self: [typed(a) for a in self.args]


class SupplicantDouble(contextlib.AbstractContextManager):
    """The double on a Player's system bus; a context manager that stops it."""

    def __init__(self, player, interfaces=()):
        from player.sandbox import PYTHON  # pylint: disable=import-outside-toplevel
        address = f"unix:path=/proc/{player._require_pid()}/root/run/dbus/system_bus_socket"
        self.bus = dbus.bus.BusConnection(address)
        self.daemon = player.start_daemon(
            "supplicant-double",
            [PYTHON, "-m", "dbusmock", "--system", "--template", os.path.abspath(__file__),
             "--parameters", json.dumps({"interfaces": list(interfaces)})],
            ready=lambda _: self.bus.name_has_owner(BUS_NAME), timeout=20.0)
        self.control = dbus.Interface(self.bus.get_object(BUS_NAME, MAIN_OBJ), CONTROL_IFACE)
        self.objects = itertools.count()

    def __exit__(self, *exc):
        self.daemon.stop()
        self.bus.close()

    def mock(self, path):
        """dbusmock's own interface on the object at path (AddMethod, AddObject...)."""
        return dbus.Interface(self.bus.get_object(BUS_NAME, path), MOCK_IFACE)

    def _get(self, path, interface, name):
        return self.bus.get_object(BUS_NAME, path).Get(interface, name,
                                                       dbus_interface=dbus.PROPERTIES_IFACE)

    def interface_path(self, ifname):
        path, = [p for p in self._get(MAIN_OBJ, MAIN_IFACE, "Interfaces")
                 if self._get(p, INTERFACE_IFACE, "Ifname") == ifname]
        return str(path)

    def calls(self, member=None):
        """The recorded calls, oldest first (only those of member if given)."""
        return [Call(str(p), str(i), str(m), str(s), list(a))
                for p, i, m, s, a in self.control.GetJournal() if member in (None, m)]

    def members(self):
        return [c.member for c in self.calls()]

    def clear(self):
        """Forgets the recorded calls and the failures still to come."""
        self.control.Clear()

    def fail(self, member, error_name, message="injected", path="", count=1):
        """The next count (-1: all) calls of member ("Get:NAME" too) on path (or any) fail."""
        self.control.Fail(path, member, error_name, message, count)

    def set_property(self, path, interface, name, value):
        """Stores value (any dbus-python value, of any type) as the property."""
        self.control.SetObjectProperty(path, interface, name, value)

    def set_state(self, ifname, state):
        self.set_property(self.interface_path(ifname), INTERFACE_IFACE, "State", state)

    def _add_object(self, path, interface, properties):
        self.mock(MAIN_OBJ).AddObject(path, interface, dbus.Dictionary(properties, signature="sv"),
                                      dbus.Array([], signature="(ssss)"))
        return path

    def set_current_network(self, ifname, properties):
        """Makes a network with these "Properties" the current one; None: none."""
        owner = self.interface_path(ifname)
        path = "/" if properties is None else self._add_object(
            f"{owner}/Networks/current{next(self.objects)}", NETWORK_IFACE,
            {"Properties": dbus.Dictionary(properties, signature="sv")})
        self.set_property(owner, INTERFACE_IFACE, "CurrentNetwork", dbus.ObjectPath(path))
        return path

    def add_bss(self, ifname, ssid=b"", bssid=b"\x00\x11\x22\x33\x44\x55", signal=-50,
                frequency=2412, current=False):
        """Adds a BSS to the interface's list (and makes it the current one)."""
        owner = self.interface_path(ifname)
        path = self._add_object(f"{owner}/BSSs/{next(self.objects)}", BSS_IFACE, {
            "SSID": dbus.ByteArray(ssid), "BSSID": dbus.ByteArray(bssid),
            "Signal": dbus.Int16(signal), "Frequency": dbus.UInt16(frequency)})
        bsses = list(self._get(owner, INTERFACE_IFACE, "BSSs")) + [dbus.ObjectPath(path)]
        self.set_property(owner, INTERFACE_IFACE, "BSSs", dbus.Array(bsses, signature="o"))
        if current:
            self.set_property(owner, INTERFACE_IFACE, "CurrentBSS", dbus.ObjectPath(path))
        return path
