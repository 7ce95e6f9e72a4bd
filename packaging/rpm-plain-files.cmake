# CPack's RPM generator marks every file installed to an absolute
# destination as %config, which would make rpm treat the program, the man
# pages and the unit as configuration. Only the two files named in
# CPACK_RPM_USER_FILELIST are configuration. Run by CPack after it has
# staged the files.
set(CPACK_ABSOLUTE_DESTINATION_FILES "")
