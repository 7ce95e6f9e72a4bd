# dpkg deletes a directory with the last package that lists it, and /opt,
# /etc/opt and /var/opt belong to no package (base-files' postinst makes
# them): a .deb that listed them would take them away on remove or purge
# wherever no other package lists them. CPack lists every directory it
# staged, so they are taken out of the .deb's data here; the package keeps
# its own KVTPslotag directories below them. Run by CPack after it has made
# the packages.
set(_system_dirs ./opt/ ./etc/opt/ ./var/opt/)

function(_run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${_work} RESULT_VARIABLE rc
                  OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${ARGN}: ${rc} ${err}")
  endif()
  set(_out "${out}" PARENT_SCOPE)
endfunction()

foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT deb MATCHES "\\.deb$")
    continue()
  endif()
  set(_work ${deb}.dirs)
  file(REMOVE_RECURSE ${_work})
  file(MAKE_DIRECTORY ${_work})
  _run(ar t ${deb})
  string(REGEX REPLACE "\n$" "" members "${_out}")
  string(REPLACE "\n" ";" members "${members}")
  if(NOT members MATCHES "^debian-binary;(control\\.tar[.a-z]*);data\\.tar\\.gz$")
    message(FATAL_ERROR "${deb}: unexpected members ${members}")
  endif()
  set(control ${CMAKE_MATCH_1})
  _run(ar x ${deb})
  _run(python3 ${CMAKE_CURRENT_LIST_DIR}/deb-drop-dirs.py data.tar.gz data.new.tar.gz ${_system_dirs})
  file(RENAME ${_work}/data.new.tar.gz ${_work}/data.tar.gz)
  file(REMOVE ${deb})
  _run(ar qc ${deb} debian-binary ${control} data.tar.gz)
  file(REMOVE_RECURSE ${_work})
endforeach()
