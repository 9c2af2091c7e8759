# Debian packages of the three install components (scripts/package.sh):
#   alertzelmanage         the plug-in, for a recorder or the PC device
#   alertzelmanage-device  the PC device: platform stand-in, broker, host,
#                          peers, tools, examples
#   alertzelmanage-dev     Common.h, the CMake package, the pkg-config file
# Depends come from the binaries (dpkg-shlibdeps), the architecture from the
# compiler (a cross build gives armhf or arm64).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME alertzelmanage)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "AlertZelManage maintainers")
set(CPACK_PACKAGE_CONTACT "AlertZelManage maintainers <maintainers@alertzelmanage.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "rule-driven alert service for in-vehicle recorders")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL plugin device sdk)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The plug-in needs libq7xcommon.so, which the recorder's platform (or the
# device package on a PC) provides.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/platform)
if(CMAKE_CROSSCOMPILING)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  else()
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  endif()
endif()

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME alertzelmanage)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SUGGESTS alertzelmanage-device)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION
  "rule-driven alert service for in-vehicle recorders (plug-in)
 The alert service as a plug-in of the recorder's host: it keeps the latest
 value of about a hundred vehicle signals, evaluates fleet-provisioned JSON
 rules ten times a second, records each alert in a log kept by the storage
 service and publishes alert transitions on the device's message bus.")

set(CPACK_DEBIAN_DEVICE_PACKAGE_NAME alertzelmanage-device)
set(CPACK_DEBIAN_DEVICE_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_DEVICE_DESCRIPTION
  "recorder stand-ins to run the alert service on a PC
 The recorder's platform library, message broker (q7x-busd) and plug-in host
 (q7x-host), stand-ins for the storage, platform and watchdog programs, a
 signal player and the tools zelctl and zel-author, with example rules,
 scenarios and a J1939 signal table.")

set(CPACK_DEBIAN_SDK_PACKAGE_NAME alertzelmanage-dev)
set(CPACK_DEBIAN_SDK_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_SDK_PACKAGE_DEPENDS "alertzelmanage-device (= ${PROJECT_VERSION}-1)")
set(CPACK_COMPONENT_SDK_DESCRIPTION
  "recorder platform API for services and tools (development files)
 Common.h, the API of the recorder's platform library (bus client, clock,
 threads, diagnostics), with a CMake package (find_package(AlertZelManage))
 and a pkg-config file (q7xcommon) to build against the PC stand-in.")

include(CPack)
