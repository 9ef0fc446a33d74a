"""A private system bus, the development registry service and a dbusmock double."""

import os
import select
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

import dbus
import dbus.bus
import pytest

REPO = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("LINKRIG_BUILD_DIR", REPO / "build"))
PROBE = BUILD / "tests" / "registry_probe"
SERVICE = REPO / "tools" / "player" / "registry_service.py"
LSAN_SUPPRESSIONS = REPO / "tests" / "sanitizer" / "lsan.supp"
PYTHON = "/usr/bin/python3"

NAME = "com.ombalabs.Registry"
OBJECT = "/com/ombalabs/Registry"
MOCK_INTERFACE = "org.freedesktop.DBus.Mock"

BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
"""


def read_line(process, timeout=20):
    """The next line of a child's standard output, or a test failure."""
    ready, _, _ = select.select([process.stdout], [], [], timeout)
    line = process.stdout.readline() if ready else ""
    if not line:
        pytest.fail(f"{process.args[0]} gave no output line within {timeout} s")
    return line.strip()


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
    try:
        return process.wait(timeout=10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        pytest.fail(f"{process.args[0]} ignored SIGTERM")


class Bus:
    """dbus-daemon of type system on a socket of its own."""

    def __init__(self):
        self.directory = tempfile.mkdtemp(prefix="regbus-")
        config = Path(self.directory, "bus.conf")
        config.write_text(BUS_CONFIG.format(socket=Path(self.directory, "socket")))
        self.daemon = subprocess.Popen(
            ["dbus-daemon", f"--config-file={config}", "--nofork", "--print-address"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = read_line(self.daemon)

    def close(self):
        stop(self.daemon)
        shutil.rmtree(self.directory, ignore_errors=True)


def probe(bus_address, *args, timeout=60):
    """Runs registry_probe against the bus; returns (status, standard output)."""
    env = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=bus_address)
    if LSAN_SUPPRESSIONS.exists():
        env["LSAN_OPTIONS"] = f"suppressions={LSAN_SUPPRESSIONS}"
    result = subprocess.run([str(PROBE), *args], capture_output=True, timeout=timeout, env=env)
    stderr = result.stderr.decode(errors="replace")
    assert "Sanitizer" not in stderr and "runtime error" not in stderr, stderr
    return result.returncode, result.stdout.decode()


@pytest.fixture
def bus():
    instance = Bus()
    yield instance
    instance.close()


@pytest.fixture
def start_service(bus, tmp_path):
    """Starts the development service on the bus with a store in tmp_path."""
    services = []

    def start(*options):
        store = tmp_path / "registry.json"
        process = subprocess.Popen(
            [PYTHON, str(SERVICE), str(store), "--address", bus.address, *options],
            stdout=subprocess.PIPE, text=True)
        services.append(process)
        assert read_line(process) == "ready"
        return store

    yield start
    for process in services:
        assert stop(process) == 0


class Mock:
    def __init__(self, bus):
        self.address = bus.address
        self.process = subprocess.Popen(
            [PYTHON, "-m", "dbusmock", "--system", NAME, OBJECT, NAME],
            stdout=subprocess.DEVNULL, env=dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=bus.address))
        self.connection = dbus.bus.BusConnection(bus.address)
        deadline = time.monotonic() + 20
        while not self.connection.name_has_owner(NAME):
            assert self.process.poll() is None and time.monotonic() < deadline, "dbusmock did not start"
            time.sleep(0.05)
        self.control = dbus.Interface(self.connection.get_object(NAME, OBJECT), MOCK_INTERFACE)

    def add(self, name, in_signature, out_signature, code=""):
        self.control.AddMethod("", name, in_signature, out_signature, code)

    def calls(self):
        return [str(name) for _, name, _ in self.control.GetCalls()]

    def close(self):
        self.connection.close()
        stop(self.process)


@pytest.fixture(scope="module")
def mock_bus():
    instance = Bus()
    mock = Mock(instance)
    yield instance, mock
    mock.close()
    instance.close()


@pytest.fixture
def mock(mock_bus):
    """The registry double with no methods and an empty call log."""
    _, instance = mock_bus
    instance.control.Reset()
    instance.control.ClearCalls()
    return instance
