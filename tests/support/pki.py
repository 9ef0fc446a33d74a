"""Certificates and stored secrets for 802.1X tests: a CA, a server certificate for hostapd's
own EAP server, a client certificate whose key PASSPHRASE locks, and the server's users."""

import base64
import subprocess
import tempfile
from pathlib import Path

import pytest

from player import linkrig_path

PASSPHRASE = "s3cret-Pass 42"
CLIENT_NAME = "player-7"
PEAP_USER = "alice"


@pytest.fixture(scope="module")
def pki():
    """{file name: bytes}: ca.pem, server.pem and .key, client.pem, .key and .p12 (locked)."""
    # Elliptic-curve keys: RSA key generation takes seconds in an emulator.
    script = f"""
        set -e
        key="-newkey ec -pkeyopt ec_paramgen_curve:prime256v1"
        openssl req -x509 $key -nodes -keyout ca.key -out ca.pem -days 30 -subj /CN=dot1x-ca
        openssl req $key -nodes -keyout server.key -out server.csr -subj /CN=authenticator
        openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out server.pem -days 30
        openssl req $key -keyout client.key -passout 'pass:{PASSPHRASE}' -out client.csr -subj /CN={CLIENT_NAME}
        openssl x509 -req -in client.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out client.pem -days 30
        openssl pkcs12 -export -in client.pem -inkey client.key -passin 'pass:{PASSPHRASE}' \
            -passout 'pass:{PASSPHRASE}' -out client.p12
    """
    with tempfile.TemporaryDirectory(prefix="dot1x-") as top:
        subprocess.run(["sh", "-c", script], cwd=top, check=True, capture_output=True)
        yield {f.name: f.read_bytes() for f in Path(top).iterdir()}


def stored(data):
    """A certificate or key as the registry stores it."""
    return "[base64]" + base64.b64encode(data).decode()


def obfuscated(text):
    """A passphrase as the registry stores it."""
    tool = Path(linkrig_path()).parents[2] / "tests" / "obfuscate_passphrase"
    return subprocess.run([tool, "A", text], check=True, capture_output=True, text=True).stdout[:-1]


def eap_server(side, directory, pki):
    """Writes hostapd's EAP server files into directory of `side`; returns hostapd.conf lines."""
    side.player.makedirs(directory)
    for name in ("ca.pem", "server.pem", "server.key"):
        side.player.write_file(f"{directory}/{name}", pki[name], mode=0o600)
    side.player.write_file(f"{directory}/users", f'"{CLIENT_NAME}" TLS\n"{PEAP_USER}" PEAP\n'
                           f'"{PEAP_USER}" MSCHAPV2 "{PASSPHRASE}" [2]\n')
    return ["eap_server=1", f"eap_user_file={directory}/users", f"ca_cert={directory}/ca.pem",
            f"server_cert={directory}/server.pem", f"private_key={directory}/server.key"]


# What the stored settings of an 802.1X client hold, by method.
def eap_tls_settings(pki):
    return {"wa": stored(pki["ca.pem"]), "wt": stored(pki["client.pem"]),
            "wk": stored(pki["client.key"]), "wp": obfuscated(PASSPHRASE)}


def eap_tls_pkcs12_settings(pki):
    return {"wa": stored(pki["ca.pem"]), "wk": stored(pki["client.p12"]),
            "wp": obfuscated(PASSPHRASE)}


def peap_settings(pki, password=PASSPHRASE):
    return {"ww": "peap", "wc": PEAP_USER, "wa": stored(pki["ca.pem"]),
            "wp": obfuscated(password)}
