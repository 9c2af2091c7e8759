# What `cmake --install` puts where, below the prefix (lib/ is lib/<triplet>
# under /usr on Debian):
#
#   lib/q7x/libq7xcommon.so                 the platform stand-in
#   lib/q7x/plugins/libAlertZelManage.so    the plug-in folder the host loads from
#   bin/                                    broker, host, peers and every tool
#   include/q7x/Common.h                    the platform API
#   lib/cmake/AlertZelManage/               find_package(AlertZelManage)
#   lib/pkgconfig/q7xcommon.pc              pkg-config q7xcommon
#   share/alertzelmanage/                   example rules, scenarios, J1939 table
#   share/doc/<package>/                    README, rule guide, copyright
#
# Three components, one Debian package each (cmake/Package.cmake): `plugin`
# (the plug-in alone, what a recorder needs), `device` (the PC device: the
# platform stand-in, its broker and host, the peers, the tools and the
# examples) and `sdk` (header, CMake package and pkg-config file). Installed
# files find their libraries through RUNPATHs relative to $ORIGIN, so the
# prefix can move.
include(GNUInstallDirs)

set(AZ_INSTALL_PLATFORMDIR ${CMAKE_INSTALL_LIBDIR}/q7x)
set(AZ_INSTALL_PLUGINDIR ${AZ_INSTALL_PLATFORMDIR}/plugins)
set(AZ_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/AlertZelManage)
set(AZ_INSTALL_DATADIR ${CMAKE_INSTALL_DATADIR}/alertzelmanage)
set(AZ_PACKAGE_PLUGIN alertzelmanage)
set(AZ_PACKAGE_DEVICE alertzelmanage-device)
set(AZ_PACKAGE_SDK alertzelmanage-dev)

# The plug-in's dynamic symbols are its entry and its three tables, nothing
# else: no weak template instantiation of the standard library can interpose
# on another plug-in's.
target_link_options(AlertZelManage PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/AlertZelManage.map)
set_property(TARGET AlertZelManage APPEND PROPERTY
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/AlertZelManage.map)

# $ORIGIN-relative search paths, from bin/ and from the plug-in folder.
file(RELATIVE_PATH az_bin_to_platform /p/${CMAKE_INSTALL_BINDIR} /p/${AZ_INSTALL_PLATFORMDIR})
file(RELATIVE_PATH az_plugin_to_platform /p/${AZ_INSTALL_PLUGINDIR} /p/${AZ_INSTALL_PLATFORMDIR})

set(AZ_INSTALLED_PROGRAMS
  q7x-busd q7x-host
  zel-storage zel-logdump zel-platform zel-watchdog zel-player zel-busmon
  zelctl zel-author zel-canlog zel-j1939-table zel-soak-load)
set_target_properties(${AZ_INSTALLED_PROGRAMS} PROPERTIES
  INSTALL_RPATH "$ORIGIN/${az_bin_to_platform}")
set_target_properties(AlertZelManage PROPERTIES INSTALL_RPATH "$ORIGIN/${az_plugin_to_platform}")

install(TARGETS AlertZelManage
  LIBRARY DESTINATION ${AZ_INSTALL_PLUGINDIR} COMPONENT plugin)
install(TARGETS q7xcommon q7x-busd q7x-host EXPORT AlertZelManageTargets
  LIBRARY DESTINATION ${AZ_INSTALL_PLATFORMDIR} COMPONENT device
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT device
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/q7x)
list(REMOVE_ITEM AZ_INSTALLED_PROGRAMS q7x-busd q7x-host)
install(TARGETS ${AZ_INSTALLED_PROGRAMS}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT device)

install(FILES examples/rules/fleet.json examples/rules/oil-pressure.json
  examples/rules/speeding.json
  DESTINATION ${AZ_INSTALL_DATADIR}/rules COMPONENT device)
install(FILES examples/scenarios/README.md examples/scenarios/road.scn
  examples/scenarios/speeding.scn
  DESTINATION ${AZ_INSTALL_DATADIR}/scenarios COMPONENT device)
install(FILES examples/j1939/README.md examples/j1939/signals.csv
  DESTINATION ${AZ_INSTALL_DATADIR}/j1939 COMPONENT device)

# The SDK: the header, the CMake package and the pkg-config file.
install(FILES platform/include/Common.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/q7x COMPONENT sdk)
install(EXPORT AlertZelManageTargets NAMESPACE AlertZelManage::
  DESTINATION ${AZ_INSTALL_CMAKEDIR} COMPONENT sdk)
include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/AlertZelManageConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/AlertZelManageConfig.cmake
  INSTALL_DESTINATION ${AZ_INSTALL_CMAKEDIR}
  PATH_VARS AZ_INSTALL_PLUGINDIR AZ_INSTALL_DATADIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/AlertZelManageConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/AlertZelManageConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/AlertZelManageConfigVersion.cmake
  DESTINATION ${AZ_INSTALL_CMAKEDIR} COMPONENT sdk)
# pkg-config paths relative to the .pc file, so the prefix can move too.
file(RELATIVE_PATH az_pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
configure_file(cmake/q7xcommon.pc.in ${CMAKE_CURRENT_BINARY_DIR}/q7xcommon.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/q7xcommon.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT sdk)

# Documents: each package's own folder, with its copyright and changelog.
string(TIMESTAMP az_changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component plugin device sdk)
  string(TOUPPER ${component} upper)
  set(package ${AZ_PACKAGE_${upper}})
  set(docdir ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES cmake/copyright DESTINATION ${docdir} COMPONENT ${component})
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/changelog-${package}
    "${package} (${PROJECT_VERSION}-1) unstable; urgency=medium\n\n"
    "  * Release ${PROJECT_VERSION}.\n\n"
    " -- AlertZelManage maintainers <maintainers@alertzelmanage.example>  "
    "${az_changelog_date}\n")
  execute_process(COMMAND gzip -9nf ${CMAKE_CURRENT_BINARY_DIR}/changelog-${package})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog-${package}.gz
    DESTINATION ${docdir} RENAME changelog.Debian.gz COMPONENT ${component})
endforeach()
install(FILES README.md docs/rule-guide.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${AZ_PACKAGE_DEVICE} COMPONENT device)
install(FILES docs/rule-guide.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${AZ_PACKAGE_PLUGIN} COMPONENT plugin)

# The install test: a temporary prefix, a consumer of the installed SDK, the
# installed host with the installed plug-in.
# Native builds without sanitizers: the consumer is built with the host's
# plain compiler.
if(AZ_BUILD_TESTS AND NOT CMAKE_CROSSCOMPILING AND NOT AZ_SANITIZE AND NOT AZ_FUZZ)
  add_test(NAME install_test COMMAND ${PROJECT_SOURCE_DIR}/tests/install/install_test.sh
    ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR}/tests/install/consumer ${CMAKE_INSTALL_LIBDIR}
    ${AZ_INSTALL_PLUGINDIR})
  set_tests_properties(install_test PROPERTIES RUN_SERIAL ON TIMEOUT 600)
endif()

include(cmake/Package.cmake)
