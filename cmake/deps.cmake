# Debian ships no CMake package for wxWidgets: wrap what FindwxWidgets gives
# in interface targets, one for the window-free code and one for the GUI.
find_package(wxWidgets 3.2 REQUIRED COMPONENTS base)
add_library(ftpzn_wxbase INTERFACE)
target_include_directories(ftpzn_wxbase SYSTEM INTERFACE ${wxWidgets_INCLUDE_DIRS})
target_compile_definitions(ftpzn_wxbase INTERFACE ${wxWidgets_DEFINITIONS})
target_compile_options(ftpzn_wxbase INTERFACE ${wxWidgets_CXX_FLAGS})
target_link_libraries(ftpzn_wxbase INTERFACE ${wxWidgets_LIBRARIES})

unset(wxWidgets_LIBRARIES)
find_package(wxWidgets 3.2 REQUIRED COMPONENTS core base)
add_library(ftpzn_wx INTERFACE)
target_include_directories(ftpzn_wx SYSTEM INTERFACE ${wxWidgets_INCLUDE_DIRS})
target_compile_definitions(ftpzn_wx INTERFACE ${wxWidgets_DEFINITIONS})
target_compile_options(ftpzn_wx INTERFACE ${wxWidgets_CXX_FLAGS})
target_link_libraries(ftpzn_wx INTERFACE ${wxWidgets_LIBRARIES})

find_package(OpenSSL 3 REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0)
find_package(GTest REQUIRED)
