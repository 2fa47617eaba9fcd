# Run by cpack on the tree that it is about to pack: what Debian's policy asks for beyond the
# installed files. gzip -n keeps name and time out, so that equal files compress to equal ones.

set(usr ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr)
set(doc ${usr}/share/doc/velmo)

file(COPY ${CPACK_VELMO_PACKAGING}/copyright DESTINATION ${doc})
file(COPY_FILE ${CPACK_VELMO_PACKAGING}/changelog ${doc}/changelog.Debian)
file(COPY_FILE ${doc}/CHANGELOG.md ${doc}/changelog)
execute_process(
  COMMAND gzip -9n ${usr}/share/man/man8/velmo.8 ${doc}/changelog ${doc}/changelog.Debian
  COMMAND_ERROR_IS_FATAL ANY)
