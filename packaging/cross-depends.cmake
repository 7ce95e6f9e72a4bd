# Read by cpack in a cross build (cmake/cross-clang.cmake). dpkg-shlibdeps
# finds the target's libraries among Debian's *-cross packages and names
# those (libgcc-s1-arm64-cross) or qualifies them (libc6:arm64); the
# package on its own architecture depends on the plain names.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(_dir ${CPACK_TOPLEVEL_DIRECTORY}/cross-depends)
file(MAKE_DIRECTORY ${_dir}/debian)
file(WRITE ${_dir}/debian/control "Source: slotag\n\nPackage: slotag\nArchitecture: any\n")
set(_args)
foreach(bin IN LISTS CPACK_SLOTAG_CROSS_BINARIES)
  list(APPEND _args -e ${bin})
endforeach()
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env DEB_HOST_ARCH=${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}
          dpkg-shlibdeps -O -l${CPACK_SLOTAG_CROSS_LIBDIR} ${_args}
  WORKING_DIRECTORY ${_dir}
  OUTPUT_VARIABLE _out ERROR_VARIABLE _err RESULT_VARIABLE _rc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT _rc EQUAL 0 OR NOT _out MATCHES "^shlibs:Depends=(.+)$")
  message(FATAL_ERROR "dpkg-shlibdeps for ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}: ${_err}")
endif()
string(REPLACE ":${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}" "" _depends "${CMAKE_MATCH_1}")
string(REPLACE "-${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}-cross" "" _depends "${_depends}")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${_depends}")
