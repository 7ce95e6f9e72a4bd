# The Debian package and the RPM, made by CPack from the install rules of
# cmake/install_layout.cmake: `cpack` in a build directory, or
# scripts/package.sh from a fresh clone.

# The version is the top entry of the changelog, so the two never disagree.
file(STRINGS ${CMAKE_SOURCE_DIR}/packaging/changelog _top LIMIT_COUNT 1)
if(NOT _top MATCHES "^slotag \\(([0-9][^)]*)\\)")
  message(FATAL_ERROR "packaging/changelog: the first line must be 'slotag (VERSION) ...'")
endif()
set(CPACK_PACKAGE_VERSION ${CMAKE_MATCH_1})

set(CPACK_PACKAGE_NAME slotag)
set(CPACK_PACKAGE_VENDOR "slotag developers")
set(CPACK_PACKAGE_CONTACT "slotag developers <slotag@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "label and register host bus adapters in PCI hot-plug slots")
set(CPACK_PACKAGE_DESCRIPTION
"slotag keeps a table of labels for the host bus adapters of a server by
PCI bus address, works out which adapter lies behind a disk, a multipath
device or a volume-manager volume, finds the machine's hot-plug
controllers through sysfs, and registers the labelled adapters with the
hot-plug driver through /dev/slotag. A udev rule and a systemd unit
register the table again whenever the driver's device appears.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_GENERATOR DEB RPM)
set(CPACK_STRIP_FILES ON)
# The state directories are made by the postinst, not shipped (see
# install_layout.cmake).
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};slotag;Unspecified;/")
set(CPACK_SET_DESTDIR ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/deb-own-dirs.cmake)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/debian/conffiles
    ${CMAKE_SOURCE_DIR}/packaging/debian/postinst
    ${CMAKE_SOURCE_DIR}/packaging/debian/postrm)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "Proprietary")
set(CPACK_RPM_PACKAGE_GROUP "Applications/System")
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${CMAKE_SOURCE_DIR}/packaging/debian/postinst)
set(CPACK_RPM_PACKAGE_RELOCATABLE OFF)
# The RPM's %changelog: the entries of the Debian changelog, newest first.
file(STRINGS ${CMAKE_SOURCE_DIR}/packaging/changelog _lines)
set(_rpm_log "")
set(_items "")
foreach(line IN LISTS _lines)
  if(line MATCHES "^slotag \\(([^)]*)\\)")
    set(_entry_version ${CMAKE_MATCH_1})
  elseif(line MATCHES "^  [*] (.*)")
    string(APPEND _items "- ${CMAKE_MATCH_1}\n")
  elseif(line MATCHES "^    (.*)")
    string(APPEND _items "  ${CMAKE_MATCH_1}\n")
  elseif(line MATCHES "^ -- (.*)  ([A-Z][a-z][a-z]), ([0-9]+) ([A-Z][a-z][a-z]) ([0-9]+) ")
    string(APPEND _rpm_log "* ${CMAKE_MATCH_2} ${CMAKE_MATCH_4} ${CMAKE_MATCH_3} ${CMAKE_MATCH_5} "
                           "${CMAKE_MATCH_1} - ${_entry_version}\n${_items}\n")
    set(_items "")
  endif()
endforeach()
file(WRITE ${CMAKE_BINARY_DIR}/packaging/rpm-changelog "${_rpm_log}")
set(CPACK_RPM_CHANGELOG_FILE ${CMAKE_BINARY_DIR}/packaging/rpm-changelog)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/rpm-plain-files.cmake)
set(CPACK_RPM_USER_FILELIST
    "%config(noreplace) /etc/opt/KVTPslotag/hba_addr.conf"
    "%config(noreplace) /etc/opt/KVTPslotag/alterpm.conf")
# Directories that belong to the system, not to slotag.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /opt /etc/opt /usr/sbin /usr/share/man /usr/share/man/man5 /usr/share/man/man8
    /usr/share/bash-completion /usr/share/bash-completion/completions
    /lib /lib/systemd /lib/systemd/system /lib/udev /lib/udev/rules.d
    /usr/share/lintian /usr/share/lintian/overrides)

# A cross build makes the .deb of its architecture, with the dependencies
# worked out when cpack runs (packaging/cross-depends.cmake).
if(CMAKE_CROSSCOMPILING)
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${SLOTAG_CROSS_ARCH})
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_SLOTAG_CROSS_LIBDIR ${CMAKE_FIND_ROOT_PATH}/lib)
  set(CPACK_SLOTAG_CROSS_BINARIES ${CMAKE_BINARY_DIR}/slotag ${CMAKE_BINARY_DIR}/slotag-show
      ${CMAKE_BINARY_DIR}/slotag-locate)
  set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/packaging/cross-depends.cmake)
endif()

include(CPack)
