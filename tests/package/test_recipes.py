"""The recipes of an integrator's firmware build (dist/buildroot, dist/yocto), against the
armhf build that scripts/recipe.sh made the way they make it: what they are called, what they
need, what they install and where. Needs no network: Buildroot and Yocto themselves are not
here, so their package names are this file's table."""

import hashlib
import os
import re
import subprocess
from pathlib import Path

import kconfiglib
import pytest

from test_package import GLUE, INSTALLED, ROOT, SYSROOT, project_version

RECIPE_BUILD = Path(os.environ.get("LINKRIG_RECIPE_BUILD", ROOT / "build" / "recipe"))
BUILDROOT = ROOT / "dist" / "buildroot"
PACKAGE = BUILDROOT / "package" / "linkrig"
YOCTO = ROOT / "dist" / "yocto" / "meta-linkrig" / "recipes-connectivity" / "linkrig"

# Each library the programs link or load: its Buildroot package and options, its Yocto recipe.
LIBRARIES = {
    "libavahi-client": ("avahi", {"BR2_PACKAGE_AVAHI", "BR2_PACKAGE_AVAHI_DAEMON"}, "avahi"),
    "libavahi-common": ("avahi", {"BR2_PACKAGE_AVAHI"}, "avahi"),
    "libboost_filesystem": ("boost", {"BR2_PACKAGE_BOOST", "BR2_PACKAGE_BOOST_FILESYSTEM"},
                            "boost"),
    "libboost_thread": ("boost", {"BR2_PACKAGE_BOOST", "BR2_PACKAGE_BOOST_THREAD"}, "boost"),
    "libcap": ("libcap", {"BR2_PACKAGE_LIBCAP"}, "libcap"),
    "libdbus-1": ("dbus", {"BR2_PACKAGE_DBUS"}, "dbus"),
    "libdbus-c++-1": ("dbus-cpp", {"BR2_PACKAGE_DBUS_CPP"}, "libdbus-c++"),
    "libfmt": ("fmt", {"BR2_PACKAGE_FMT"}, "fmt"),
    "libgcrypt": ("libgcrypt", {"BR2_PACKAGE_LIBGCRYPT"}, "libgcrypt"),
    "libgnutls": ("gnutls", {"BR2_PACKAGE_GNUTLS"}, "gnutls"),
    "libnl-3": ("libnl", {"BR2_PACKAGE_LIBNL"}, "libnl"),
    "libnl-route-3": ("libnl", {"BR2_PACKAGE_LIBNL"}, "libnl"),
    "libubootenv": ("libubootenv", {"BR2_PACKAGE_LIBUBOOTENV"}, "libubootenv"),
}
# Header-only, so in no link: the JSON library (Buildroot package and option, Yocto recipe).
HEADERS = ("json-for-modern-cpp", {"BR2_PACKAGE_JSON_FOR_MODERN_CPP"}, "nlohmann-json")
TOOLCHAIN = {"libc", "libm", "libstdc++", "libgcc_s", "ld-linux-armhf"}
# What the build runs on the build machine: the proxy generator, pkg-config, scdoc.
BUILDROOT_HOST = {"host-dbus-cpp", "host-pkgconf", "host-scdoc"}
YOCTO_NATIVE = {"libdbus-c++-native", "scdoc-native"}
# Where Yocto's variables point on a merged /usr.
YOCTO_DIRS = {"${sysconfdir}": "/etc", "${nonarch_base_libdir}": "/usr/lib",
              "${libexecdir}": "/usr/libexec"}


def needed(path):
    dynamic = subprocess.run(["readelf", "-d", path], check=True, capture_output=True,
                             text=True).stdout
    return {re.sub(r"\.so(\.\d+)*$", "", name)
            for name in re.findall(r"\(NEEDED\)\s+Shared library: \[(.+)\]", dynamic)}


@pytest.fixture(scope="module")
def libraries():
    """The libraries the staged programs link, and those linkrig loads when first used."""
    if not (RECIPE_BUILD / "stage").is_dir():
        pytest.skip(f"no staging root in {RECIPE_BUILD}: run scripts/recipe.sh")
    names = needed(RECIPE_BUILD / "build" / "liblinkrig_loaded_libraries.so")
    for program in ("linkrig", "linkrig-plan"):
        names |= needed(RECIPE_BUILD / "stage" / "usr" / "sbin" / program)
    assert names - TOOLCHAIN <= LIBRARIES.keys(), "a library the table does not know"
    return names - TOOLCHAIN


def assignments(path):
    """{NAME: value} of a make or BitBake file, continued lines joined; += adds a word."""
    values = {}
    text = re.sub(r"\\\n\s*", " ", path.read_text())
    for name, operator, value in re.findall(r"^([\w:\[\]${}-]+)\s*(\+?=)\s*(.*)$", text, re.M):
        value = value.strip().strip('"')
        values[name] = (values.get(name, "") + " " + value).strip() if operator == "+=" else value
    return values


def installs(text, source, destination):
    """(mode, file in the tree, path on the target) of each `install -D -m MODE SRC DEST`."""
    found = []
    for mode, src, dest in re.findall(r"(?:\$\(INSTALL\)|\binstall) -D -m (\d+) (\S+)\s+(\S+)", text):
        found.append((mode.lstrip("0"), src.replace(source, ""), dest.replace(destination, "")))
    return found


def check_glue(found, expand=lambda path: path):
    """The glue where a player has it; the dhcpcd hook in dhcpcd's own (distribution's) place."""
    assert len(found) == len(GLUE)
    for mode, src, dest in found:
        name = Path(src).name
        _, where, wanted_mode = next(g for g in GLUE if g[0] == name)
        dest = expand(dest)
        assert (ROOT / src.lstrip("/")).is_file() and mode == wanted_mode, src
        if name == "dhcpcd-hook":
            assert dest.endswith("/dhcpcd-hooks/90-linkrig"), dest
        elif name == "linkrig.init":
            assert Path(dest).parent == Path(where).parent and dest.endswith("linkrig"), dest
        else:
            assert dest == where


def test_staging_root_holds_what_the_packages_hold_with_64_bit_time(libraries):
    stage = RECIPE_BUILD / "stage"
    assert sorted(f"/{f.relative_to(stage)}" for f in stage.rglob("*") if f.is_file()) == INSTALLED
    assert subprocess.run(["/usr/bin/python3", ROOT / "tests/armhf/time_symbols.py", "readelf",
                           f"{SYSROOT}/usr/lib/arm-linux-gnueabihf/libc.so.6",
                           stage / "usr/sbin/linkrig", stage / "usr/sbin/linkrig-plan"]
                          ).returncode == 0


def test_buildroot_options_select_what_the_program_links(libraries, tmp_path, monkeypatch):
    text = (PACKAGE / "Config.in").read_text()
    # Buildroot's own options, as plain ones the test can set.
    theirs = set(re.findall(r"\bBR2_\w+", text)) - set(re.findall(r"^config (\w+)", text, re.M))
    top = tmp_path / "Config.in"
    top.write_text("".join(f'config {name}\n\tbool "{name}"\n' for name in sorted(theirs)) +
                   f'source "{BUILDROOT}/Config.in"\n')
    monkeypatch.setenv("BR2_EXTERNAL_LINKRIG_PATH", str(BUILDROOT))
    kconf = kconfiglib.Kconfig(str(top), warn_to_stderr=False)
    assert kconf.warnings == []
    linkrig = kconf.syms["BR2_PACKAGE_LINKRIG"]
    requires = {sym.name for sym in kconfiglib.expr_items(linkrig.direct_dep)}
    comment = next(node for node in kconf.node_iter() if node.item == kconfiglib.COMMENT)
    assert {sym.name for sym in kconfiglib.expr_items(comment.dep)} == requires
    for missing in [None] + sorted(requires):
        kconf.unset_values()
        for name in requires - {missing}:
            kconf.syms[name].set_value(2)
        linkrig.set_value(2)
        # Without what it requires, the option is not there, and the comment says why
        # (without an MMU, Buildroot's packages of that kind stay silent).
        assert (linkrig.tri_value == 2) == (missing is None), missing
        shown = missing not in (None, "BR2_USE_MMU")
        assert kconfiglib.expr_value(comment.dep) == (2 if shown else 0), missing
    kconf.unset_values()
    for name in requires:
        kconf.syms[name].set_value(2)
    linkrig.set_value(2)
    selected = {sym.name for sym in kconf.unique_defined_syms
                if sym.tri_value == 2 and sym.name.startswith("BR2_PACKAGE_") and sym != linkrig}
    assert selected == set().union(HEADERS[1], *(LIBRARIES[name][1] for name in libraries))


def test_buildroot_package(libraries):
    values = assignments(PACKAGE / "linkrig.mk")
    assert all(name.startswith("LINKRIG_") for name in values)
    assert values["LINKRIG_VERSION"] == project_version()
    site = values["LINKRIG_SITE"].replace("$(BR2_EXTERNAL_LINKRIG_PATH)", str(BUILDROOT))
    assert (values["LINKRIG_SITE_METHOD"], Path(site).resolve()) == ("local", ROOT)
    assert "name: LINKRIG\n" in (BUILDROOT / "external.desc").read_text()
    assert set(values["LINKRIG_DEPENDENCIES"].split()) == BUILDROOT_HOST | {HEADERS[0]} | {
        LIBRARIES[name][0] for name in libraries}
    # The license file: hashed, and the hash true.
    hashes = re.findall(r"^sha256\s+([0-9a-f]{64})\s+(\S+)$",
                        (PACKAGE / "linkrig.hash").read_text(), re.M)
    assert {name for _, name in hashes} == set(values["LINKRIG_LICENSE_FILES"].split())
    for digest, name in hashes:
        assert hashlib.sha256((ROOT / name).read_bytes()).hexdigest() == digest, name
    text = (PACKAGE / "linkrig.mk").read_text()
    # Each install step is a hook that runs.
    for hook in re.findall(r"^define (\w+)", text, re.M):
        assert hook == "LINKRIG_INSTALL_INIT_SYSV" or hook in values[
            "LINKRIG_POST_INSTALL_TARGET_HOOKS"].split(), hook
    check_glue(installs(re.sub(r"\\\n\s*", " ", text), "$(@D)", "$(TARGET_DIR)"))


def test_yocto_recipe(libraries):
    recipe = YOCTO / f"linkrig_{project_version()}.bb"
    values = assignments(recipe)
    text = recipe.read_text()
    assert {"cmake", "pkgconfig"} <= set(" ".join(re.findall(r"^inherit (.*)$", text, re.M)).split())
    assert set(values["DEPENDS"].split()) == YOCTO_NATIVE | {HEADERS[2]} | {
        LIBRARIES[name][2] for name in libraries}
    options = set(values["EXTRA_OECMAKE"].split())
    buildroot = set(assignments(PACKAGE / "linkrig.mk")["LINKRIG_CONF_OPTS"].split())
    assert options == buildroot | {"-DBUILD_TESTING=OFF"}
    license_file, md5 = re.fullmatch(r"file://(\S+);md5=(\w+)", values["LIC_FILES_CHKSUM"]).groups()
    assert hashlib.md5((ROOT / license_file).read_bytes()).hexdigest() == md5
    relative = re.search(r"'THISDIR'\), '([./]+)'", values["EXTERNALSRC"])[1]
    assert (YOCTO / relative).resolve() == ROOT

    def expand(path):
        for variable, directory in YOCTO_DIRS.items():
            path = path.replace(variable, directory)
        return path
    found = installs(text, "${S}", "${D}")
    check_glue(found, expand)
    init = next(dest for _, src, dest in found if src.endswith("linkrig.init"))
    assert expand(init) == "/etc/init.d/" + values["INITSCRIPT_NAME"]
