SUMMARY = "Network configuration command of the media player"
DESCRIPTION = "The player's boot script and udev rule run linkrig once per network port and \
event; it applies the port's stored settings to the kernel, dhcpcd, udhcpd, wpa_supplicant, \
pppd and Avahi."
LICENSE = "Proprietary"
NO_GENERIC_LICENSE[Proprietary] = "doc/copyright"
LIC_FILES_CHKSUM = "file://doc/copyright;md5=a5e29ecd8cef87cd64aa9c7667fc3adb"

# The tree this layer is part of: linkrig is not published as an archive.
inherit externalsrc
EXTERNALSRC = "${@os.path.abspath(os.path.join(d.getVar('THISDIR'), '../../../../..'))}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

DEPENDS = "avahi boost dbus fmt gnutls libcap libdbus-c++ libgcrypt libnl libubootenv nlohmann-json \
           libdbus-c++-native scdoc-native"

inherit cmake pkgconfig update-rc.d

# Shared libraries, as everything else on the target.
EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DLINKRIG_STATIC_LIBS=OFF -DLINKRIG_MAN_PAGES=ON"

INITSCRIPT_NAME = "linkrig"
INITSCRIPT_PARAMS = "defaults 41"

do_install:append() {
    install -D -m 0755 ${S}/doc/examples/linkrig.init ${D}${sysconfdir}/init.d/linkrig
    install -D -m 0644 ${S}/doc/examples/90-linkrig.rules ${D}${sysconfdir}/udev/rules.d/90-linkrig.rules
    install -D -m 0755 ${S}/doc/examples/linkrig-hotplug ${D}${nonarch_base_libdir}/udev/linkrig-hotplug
    install -D -m 0644 ${S}/doc/examples/dhcpcd-hook ${D}${libexecdir}/dhcpcd-hooks/90-linkrig
}

FILES:${PN} += "${nonarch_base_libdir}/udev"
RRECOMMENDS:${PN} = "dhcpcd iproute2-tc iptables"
