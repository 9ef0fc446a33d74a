################################################################################
#
# linkrig
#
################################################################################

LINKRIG_VERSION = 0.1.0
# The tree this external tree is part of: linkrig is not published as an archive.
LINKRIG_SITE = $(BR2_EXTERNAL_LINKRIG_PATH)/../..
LINKRIG_SITE_METHOD = local
LINKRIG_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
LINKRIG_LICENSE = Proprietary
LINKRIG_LICENSE_FILES = doc/copyright
LINKRIG_REDISTRIBUTE = NO
LINKRIG_DEPENDENCIES = avahi boost dbus dbus-cpp fmt gnutls json-for-modern-cpp libcap libgcrypt libnl \
	libubootenv \
	host-dbus-cpp host-pkgconf host-scdoc
# Shared libraries, as everything else on the target (cmake-package turns the tests off).
LINKRIG_CONF_OPTS = -DLINKRIG_STATIC_LIBS=OFF -DLINKRIG_MAN_PAGES=ON

define LINKRIG_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/doc/examples/linkrig.init $(TARGET_DIR)/etc/init.d/S41linkrig
endef

define LINKRIG_INSTALL_DHCPCD_HOOK
	$(INSTALL) -D -m 0644 $(@D)/doc/examples/dhcpcd-hook \
		$(TARGET_DIR)/lib/dhcpcd/dhcpcd-hooks/90-linkrig
endef
LINKRIG_POST_INSTALL_TARGET_HOOKS += LINKRIG_INSTALL_DHCPCD_HOOK

ifeq ($(BR2_PACKAGE_HAS_UDEV),y)
define LINKRIG_INSTALL_UDEV_RULE
	$(INSTALL) -D -m 0644 $(@D)/doc/examples/90-linkrig.rules \
		$(TARGET_DIR)/etc/udev/rules.d/90-linkrig.rules
	$(INSTALL) -D -m 0755 $(@D)/doc/examples/linkrig-hotplug \
		$(TARGET_DIR)/usr/lib/udev/linkrig-hotplug
endef
LINKRIG_POST_INSTALL_TARGET_HOOKS += LINKRIG_INSTALL_UDEV_RULE
endif

$(eval $(cmake-package))
