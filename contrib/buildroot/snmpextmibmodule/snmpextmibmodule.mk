################################################################################
#
# snmpextmibmodule
#
################################################################################

SNMPEXTMIBMODULE_VERSION = 1.0.0
SNMPEXTMIBMODULE_SITE = $(call qstrip,$(BR2_PACKAGE_SNMPEXTMIBMODULE_SITE))
SNMPEXTMIBMODULE_SOURCE = snmpextmibmodule-$(SNMPEXTMIBMODULE_VERSION).tar.gz
SNMPEXTMIBMODULE_LICENSE = Apache-2.0
SNMPEXTMIBMODULE_LICENSE_FILES = LICENSE
SNMPEXTMIBMODULE_DEPENDENCIES = cli11 netsnmp $(if $(BR2_PACKAGE_HOST_LLD),host-lld)

SNMPEXTMIBMODULE_CONF_OPTS = \
	-DTAVO_BUILD_SIMULATOR=OFF \
	-DTAVO_BUILD_TESTS=OFF \
	-DTAVO_BUILD_BENCH=OFF \
	-DTAVO_LLD=$(if $(BR2_PACKAGE_HOST_LLD),$(HOST_DIR)/bin/ld.lld,OFF) \
	-DTAVO_SYSTEMD=$(if $(BR2_INIT_SYSTEMD),ON,OFF)

define SNMPEXTMIBMODULE_USERS
	snmp-subagentd -1 snmp-subagentd -1 * /var/lib/snmp-subagentd - - SNMP subagent
endef

define SNMPEXTMIBMODULE_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 755 $(SNMPEXTMIBMODULE_PKGDIR)/S60snmp-subagentd \
		$(TARGET_DIR)/etc/init.d/S60snmp-subagentd
endef

$(eval $(cmake-package))
