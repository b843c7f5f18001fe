# Helpers shared by every folder's CMakeLists.

# The window-free code of one folder: a static, position-independent library
# that both the module and the tests link.
function(ftpzn_core_library name)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC Threads::Threads)
endfunction()

# GUI sources of a folder join the one object library that becomes the
# module; tests link the same objects.
function(ftpzn_gui_sources)
  target_sources(ftpzn_gui PRIVATE ${ARGN})
endfunction()

# A test executable run by CTest. GUI tests run under Xvfb, one process per
# binary (each process initialises GTK once).
function(ftpzn_unit_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE GTest::gtest GTest::gtest_main GTest::gmock)
  add_test(NAME ${name} COMMAND ${name})
endfunction()

function(ftpzn_gui_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE ftpzn_gui_harness)
  add_test(NAME ${name}
           COMMAND ${PROJECT_SOURCE_DIR}/tests/support/xvfb-run.sh $<TARGET_FILE:${name}>)
endfunction()
