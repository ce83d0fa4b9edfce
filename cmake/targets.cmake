# dunra_library(NAME SOURCES file... [DEPENDS library...])
# A folder of Src as a static library. Headers are included by folder ("utils/trace_log.h").
function(dunra_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/Src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} Threads::Threads)
endfunction()

# dunra_test(NAME SOURCES file... DEPENDS library...)
# One GoogleTest executable; each of its cases is a test of ctest.
function(dunra_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
