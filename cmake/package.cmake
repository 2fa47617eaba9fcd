# cpack -G DEB: a Debian package of what cmake --install installs. script/package builds and checks
# it.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "velmo maintainers <maintainers@users.noreply.c-seed-eb6af418.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Below the first revision that a distribution would give its own package.
set(CPACK_DEBIAN_PACKAGE_RELEASE 0.1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS msr-tools)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "velmo measures the memory of x86-64 servers that hold several kinds of it:
DRAM of this socket and of others, memory expanders that appear as NUMA nodes
without CPUs, device-DAX and persistent memory.
.
It reports how long a load takes, on average and in the tail; how many bytes a
second the memory moves for a given mix of reads and writes; and how long a
load takes while the memory is that busy.")
# Compresses what Debian wants compressed, and adds what only a Debian package has.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian_files.cmake)
set(CPACK_VELMO_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)

include(CPack)
