SUMMARY = "SNMP extension for the management controller of a rack server, and its daemon"
DESCRIPTION = "A module with the server's inventory, health, environment statistics and active faults, for \
the subagent daemon snmp-subagentd. The platform supplies libbmcplatform.so and the query tools."
SECTION = "net"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# The source archive of a release, in the directory files/ beside this recipe.
SRC_URI = "file://snmpextmibmodule-${PV}.tar.gz"
S = "${WORKDIR}/snmpextmibmodule-${PV}"

DEPENDS = "cli11 net-snmp"

inherit cmake pkgconfig systemd useradd

EXTRA_OECMAKE = "-DTAVO_BUILD_SIMULATOR=OFF -DTAVO_BUILD_TESTS=OFF -DTAVO_BUILD_BENCH=OFF"
PACKAGECONFIG ??= "${@bb.utils.filter('DISTRO_FEATURES', 'systemd', d)}"
PACKAGECONFIG[systemd] = "-DTAVO_SYSTEMD=ON,-DTAVO_SYSTEMD=OFF"
# Makes the module smaller on Arm, where a layer has this linker, version 16 or later.
PACKAGECONFIG[lld] = "-DTAVO_LLD=${STAGING_BINDIR_NATIVE}/ld.lld,-DTAVO_LLD=OFF,lld-native"

# The build installs the unit below the prefix, which is right where /lib is a link to /usr/lib.
do_install:append() {
    unit=${D}${nonarch_libdir}/systemd/system/snmp-subagentd.service
    if [ -e $unit ] && [ ${systemd_system_unitdir} != ${nonarch_libdir}/systemd/system ]; then
        install -d ${D}${systemd_system_unitdir}
        mv $unit ${D}${systemd_system_unitdir}
        rmdir -p --ignore-fail-on-non-empty ${D}${nonarch_libdir}/systemd/system
    fi
}

PACKAGES =+ "snmp-subagentd tavo-mibs tavo-monitoring"

# The loader finds the module by this name: it is no link for developers.
FILES_SOLIBSDEV = ""
FILES:${PN} = "${libdir}/libsnmpextmibmodule.so"
FILES:snmp-subagentd = " \
    ${sbindir}/snmp-subagentd \
    ${sysconfdir}/snmp/snmpd.conf.d/subagentd.conf \
    ${systemd_system_unitdir}/snmp-subagentd.service \
    ${nonarch_libdir}/tmpfiles.d/snmp-subagentd.conf \
    ${nonarch_libdir}/sysusers.d/snmp-subagentd.conf \
"
FILES:tavo-mibs = "${datadir}/snmp/mibs ${datadir}/snmpextmibmodule/mibs"
FILES:tavo-monitoring = "${datadir}/snmpextmibmodule/contrib"
CONFFILES:snmp-subagentd = "${sysconfdir}/snmp/snmpd.conf.d/subagentd.conf"

RDEPENDS:snmp-subagentd = "${PN} (= ${EXTENDPKGV})"
RRECOMMENDS:snmp-subagentd = "net-snmp-server-snmpd"

SYSTEMD_PACKAGES = "snmp-subagentd"
SYSTEMD_SERVICE:snmp-subagentd = "snmp-subagentd.service"

USERADD_PACKAGES = "snmp-subagentd"
USERADD_PARAM:snmp-subagentd = "--system --user-group --no-create-home --shell /sbin/nologin \
    --home-dir ${localstatedir}/lib/snmp-subagentd snmp-subagentd"
