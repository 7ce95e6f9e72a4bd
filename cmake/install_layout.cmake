# Where an installed slotag lives. It is an add-on package in the FHS sense:
# the programs under /opt/KVTPslotag (the install prefix, changeable), the
# configuration under /etc/opt/KVTPslotag and the variable data under
# /var/opt/KVTPslotag. Those two are the paths compiled into the tool, so
# they do not follow the prefix; neither do the places where the system
# looks for links on the PATH, man pages, completions, units and udev rules.
# Every destination honours DESTDIR.

if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(CMAKE_INSTALL_PREFIX /opt/KVTPslotag CACHE PATH "Install prefix" FORCE)
endif()

set(SLOTAG_BIN_DIR ${CMAKE_INSTALL_PREFIX}/bin)
set(SLOTAG_CONF_DIR /etc/opt/KVTPslotag)
set(SLOTAG_STATE_DIR /var/opt/KVTPslotag)
set(SLOTAG_LINK_DIR /usr/sbin CACHE PATH "Directory on the PATH that gets a link to each command")
set(SLOTAG_MAN_DIR /usr/share/man CACHE PATH "Manual page directory")
set(SLOTAG_COMPLETION_DIR /usr/share/bash-completion/completions CACHE PATH
    "Bash completion directory")
# Debian 12 keeps units and rules below /lib (its merged-/usr move is not
# done); other systems may say /usr/lib.
set(SLOTAG_SYSTEMD_UNIT_DIR /lib/systemd/system CACHE PATH "systemd system unit directory")
set(SLOTAG_UDEV_RULES_DIR /lib/udev/rules.d CACHE PATH "udev rules directory")
set(SLOTAG_DOC_DIR /usr/share/doc/slotag)

set(_slotag_pkg ${CMAKE_SOURCE_DIR}/packaging)

# slotag_install_command(TARGET): installs a command into the bin directory
# with a symbolic link to it in /usr/sbin, where an administrator looks.
function(slotag_install_command target)
  install(TARGETS ${target} DESTINATION ${SLOTAG_BIN_DIR}
          PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                      WORLD_READ WORLD_EXECUTE)
  set(name $<TARGET_FILE_NAME:${target}>)
  install(CODE "
    set(link \"\$ENV{DESTDIR}${SLOTAG_LINK_DIR}/${name}\")
    message(STATUS \"Installing: \${link} -> ${SLOTAG_BIN_DIR}/${name}\")
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}${SLOTAG_LINK_DIR}\")
    file(CREATE_LINK \"${SLOTAG_BIN_DIR}/${name}\" \"\${link}\" SYMBOLIC)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${link}\")")
endfunction()

# A configuration file an administrator edits: installed when absent, never
# overwritten, so a reinstall keeps the table.
function(slotag_install_conffile source mode)
  get_filename_component(name ${source} NAME)
  install(CODE "
    set(present \"\$ENV{DESTDIR}${SLOTAG_CONF_DIR}/${name}\")
    if(EXISTS \"\${present}\" OR IS_SYMLINK \"\${present}\")
      message(STATUS \"Keeping: \${present}\")
    else()
      # file(INSTALL) puts DESTDIR in front itself
      file(INSTALL \"${source}\" DESTINATION \"${SLOTAG_CONF_DIR}\" FILE_PERMISSIONS ${mode})
    endif()")
endfunction()

# Man pages go in compressed, as Debian wants them; every page in docs/ is
# taken, whatever its section.
function(slotag_install_man_pages)
  file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.[1-8])
  set(outputs "")
  foreach(page IN LISTS pages)
    get_filename_component(name ${page} NAME)
    string(REGEX REPLACE ".*\\.([1-8])$" "\\1" section ${name})
    set(gz ${CMAKE_BINARY_DIR}/man/${name}.gz)
    add_custom_command(OUTPUT ${gz}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
      COMMAND sh -c "gzip -9nc \"$1\" >\"$2\"" sh ${page} ${gz}
      DEPENDS ${page} VERBATIM)
    list(APPEND outputs ${gz})
    install(FILES ${gz} DESTINATION ${SLOTAG_MAN_DIR}/man${section})
  endforeach()
  set(changelog_gz ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
  add_custom_command(OUTPUT ${changelog_gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
    COMMAND sh -c "gzip -9nc \"$1\" >\"$2\"" sh ${_slotag_pkg}/changelog ${changelog_gz}
    DEPENDS ${_slotag_pkg}/changelog VERBATIM)
  add_custom_target(slotag_compressed_docs ALL DEPENDS ${outputs} ${changelog_gz})
  install(FILES ${changelog_gz} ${_slotag_pkg}/copyright DESTINATION ${SLOTAG_DOC_DIR})
endfunction()

function(slotag_install_layout)
  slotag_install_conffile(${_slotag_pkg}/hba_addr.conf "OWNER_READ OWNER_WRITE")
  slotag_install_conffile(${_slotag_pkg}/alterpm.conf "OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ")

  # The log directory holds user.log (created 0640 by the tool); the lock
  # file only needs to exist. The package creates these from its postinst
  # instead (component "state", left out of the packages), so that dpkg
  # does not remove an administrator's log along with the program.
  install(DIRECTORY DESTINATION ${SLOTAG_STATE_DIR}/log COMPONENT state
          DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
  install(CODE "
    set(lock \"\$ENV{DESTDIR}${SLOTAG_STATE_DIR}/lock/.slotag.lock\")
    if(NOT EXISTS \"\${lock}\")
      message(STATUS \"Installing: \${lock}\")
      file(MAKE_DIRECTORY \"\$ENV{DESTDIR}${SLOTAG_STATE_DIR}/lock\")
      file(TOUCH \"\${lock}\")
      file(CHMOD \"\${lock}\" PERMISSIONS OWNER_READ OWNER_WRITE)
    endif()" COMPONENT state)

  slotag_install_man_pages()

  file(GLOB completions CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/bash-completion/*)
  if(completions)
    install(FILES ${completions} DESTINATION ${SLOTAG_COMPLETION_DIR})
  endif()

  configure_file(${_slotag_pkg}/slotag-register.service.in
                 ${CMAKE_BINARY_DIR}/packaging/slotag-register.service @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/slotag-register.service
          DESTINATION ${SLOTAG_SYSTEMD_UNIT_DIR})
  install(FILES ${_slotag_pkg}/60-slotag.rules DESTINATION ${SLOTAG_UDEV_RULES_DIR})
  install(FILES ${_slotag_pkg}/lintian-overrides DESTINATION /usr/share/lintian/overrides
          RENAME slotag)
endfunction()
