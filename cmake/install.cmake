# What `cmake --install` installs, by component: module, daemon, simulator, mibs, monitoring, doc. docs/operations.md lists
# the files. What was left out of the build is left out here.
include(GNUInstallDirs)
set(own_data ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME})

# The loader finds the module and the platform libraries by their names alone, so they stand among the libraries.
install(TARGETS snmpextmibmodule DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT module)
install(DIRECTORY platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME} COMPONENT module
        FILES_MATCHING PATTERN *.h)
install(DIRECTORY examples/platform DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT module)
install(FILES man/libsnmpextmibmodule.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT module)
configure_file(platform/snmpextmibmodule.pc.in snmpextmibmodule.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/snmpextmibmodule.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT module)

if(TAVO_BUILD_DAEMON)
  install(TARGETS snmp-subagentd DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
  install(FILES host/snmpd-master.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/snmp/snmpd.conf.d
          RENAME subagentd.conf COMPONENT daemon)
  install(FILES man/snmp-subagentd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)
  install(FILES man/snmp-subagentd.conf.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT daemon)
  # An example only: behind a master it would send each notification a second time.
  install(FILES host/snmp-subagentd.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT daemon)
  install(FILES host/snmp-subagentd.apparmor DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT daemon)
  if(TAVO_SYSTEMD)
    configure_file(host/snmp-subagentd.service.in snmp-subagentd.service @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/snmp-subagentd.service DESTINATION lib/systemd/system COMPONENT daemon)
    install(FILES host/snmp-subagentd.tmpfiles DESTINATION lib/tmpfiles.d RENAME snmp-subagentd.conf COMPONENT daemon)
    install(FILES host/snmp-subagentd.sysusers DESTINATION lib/sysusers.d RENAME snmp-subagentd.conf COMPONENT daemon)
  endif()
endif()

if(TAVO_BUILD_SIMULATOR)
  install(TARGETS bmcsim DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)
  install(TARGETS bmcsim_platform DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT simulator)
  install(FILES man/bmcsim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT simulator)
  install(DIRECTORY simulator/scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/bmcsim COMPONENT simulator)
  # The query tools stand in a directory of their own: ipmitool is the name of a real program, too.
  set(query_tools ${CMAKE_INSTALL_LIBEXECDIR}/bmcsim)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBEXECDIR}/bmcsim
             OUTPUT_VARIABLE programs)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/query-tools)
  foreach(tool datactl flatkv slotutil ipmitool)
    file(CREATE_LINK ${programs}/bmcsim ${CMAKE_BINARY_DIR}/query-tools/${tool} SYMBOLIC)
    install(FILES ${CMAKE_BINARY_DIR}/query-tools/${tool} DESTINATION ${query_tools} COMPONENT simulator)
  endforeach()
endif()

file(GLOB mibs CONFIGURE_DEPENDS mibs/TAVO-*)
install(FILES ${mibs} DESTINATION ${CMAKE_INSTALL_DATADIR}/snmp/mibs COMPONENT mibs)
# The modules that ours import stand apart from those of the system, which may be others.
install(DIRECTORY mibs/base/ DESTINATION ${own_data}/mibs COMPONENT mibs)

if(EXISTS ${CMAKE_SOURCE_DIR}/contrib)
  # What builds an image is for those who have the sources.
  install(DIRECTORY contrib/ DESTINATION ${own_data}/contrib USE_SOURCE_PERMISSIONS COMPONENT monitoring
          PATTERN yocto EXCLUDE PATTERN buildroot EXCLUDE)
endif()

# As in the tree, so that the links lead on.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
        FILES_MATCHING PATTERN *.md PATTERN *.png PATTERN *.svg)
