# Writes a pkg-config file from its template while `cmake --install` runs, when the prefix is known.
#
# The file finds the prefix from its own place, so that the tree can be moved. In a board's file system, below /usr, it
# names the prefix instead: PKG_CONFIG_SYSROOT_DIR goes in front of that, and not every pkg-config leaves it off a path
# that has it already.
cmake_policy(VERSION 3.25)

set(prefix ${CMAKE_INSTALL_PREFIX})
if(NOT prefix MATCHES "^/(usr(/local)?)?$" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" /)
    string(REGEX REPLACE "/$" "" prefix "\${pcfiledir}/${up}")
endif()
set(libdir "\${prefix}")
cmake_path(APPEND libdir "${CMAKE_INSTALL_LIBDIR}")
set(includedir "\${prefix}")
cmake_path(APPEND includedir "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(${template} ${file} @ONLY)
