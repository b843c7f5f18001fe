# What `cmake --install` and the Debian package put where: the module with
# its one public header, the command-line tools with their manual pages, the
# demo host, and what a host's build finds the module by (a CMake package
# and a pkg-config file).
include(CMakePackageConfigHelpers)

set(FTPZN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ftpzn)

install(TARGETS ftpzn EXPORT ftpznTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ftpzn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ftpzn-ftp ftpzn-sites ftpzn-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/tools/man/ftpzn-ftp.1 ${PROJECT_SOURCE_DIR}/tools/man/ftpzn-sites.1
              ${PROJECT_SOURCE_DIR}/host/ftpzn-host.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

install(EXPORT ftpznTargets NAMESPACE ftpzn:: DESTINATION ${FTPZN_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ftpznConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/ftpznConfig.cmake INSTALL_DESTINATION ${FTPZN_CMAKE_DIR})
# 0.x: a new minor version may change the entry classes.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ftpznConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ftpznConfig.cmake ${PROJECT_BINARY_DIR}/ftpznConfigVersion.cmake
        DESTINATION ${FTPZN_CMAKE_DIR})

# wx ships no pkg-config file on Debian: the flags wx-config gives for the
# two libraries the public header and a host need are written in. The
# prefix is found from the file's own place, so `--prefix` at install time
# holds.
execute_process(COMMAND ${wxWidgets_CONFIG_EXECUTABLE} --cxxflags core,base
                OUTPUT_VARIABLE FTPZN_WX_CFLAGS OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${wxWidgets_CONFIG_EXECUTABLE} --libs core,base
                OUTPUT_VARIABLE FTPZN_WX_LIBS OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
file(RELATIVE_PATH FTPZN_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" FTPZN_PC_TO_PREFIX "${FTPZN_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/ftpzn.pc.in ${PROJECT_BINARY_DIR}/ftpzn.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ftpzn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Debian package: everything above under /usr, its dependencies taken
# from the libraries the binaries link (dpkg-shlibdeps).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ftpzn)
set(CPACK_PACKAGE_VENDOR ftpzn)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "ftpzn developers <ftpzn@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "FTP client window for wxWidgets applications, and FTP tools")
set(CPACK_PACKAGE_DESCRIPTION
    "libftpzn.so opens a two-pane FTP client window inside a wxWidgets 3.2\n"
    "application that links it. The package holds the module with its header,\n"
    "CMake package and pkg-config file, the demo host ftpzn-host, and the\n"
    "command-line tools ftpzn-ftp (an FTP client for scripts) and ftpzn-sites\n"
    "(site files).")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# Building a host against the header needs wx's development files.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libwxgtk3.2-dev, pkg-config")
include(CPack)
