# One fuzzer per tests/fuzz/<name>_fuzz.cpp, and a test labelled fuzz that runs it from the seeds in
# tests/fuzz/corpus/<name>_fuzz.

morva_sources(fuzzSources tests/fuzz "*_fuzz.cpp")
# What targets share with each other and with the unit tests.
add_library(fuzz_support STATIC EXCLUDE_FROM_ALL
  tests/unit/support/injection_rules.cpp tests/unit/support/page_tree.cpp
  tests/unit/support/random_page.cpp   tests/unit/support/posix/test_system_posix.cpp)
target_include_directories(fuzz_support PUBLIC tests/unit tests/fuzz)
target_link_libraries(fuzz_support PUBLIC morva_core)

foreach(source IN LISTS fuzzSources)
  cmake_path(GET source STEM target)
  add_executable(${target} ${source} tests/fuzz/fuzz_main.cpp)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz")
  target_link_libraries(${target} PRIVATE morva_core fuzz_support)
  target_link_options(${target} PRIVATE -fsanitize=fuzzer)
  set(seconds 5)
  if(target MATCHES "^(frames|event_splitter|turn_stream)_")
    # What comes from the browser and from the agent is cut and joined at any byte, all day long.
    set(seconds 10)
  endif()
  add_test(NAME ${target}
    COMMAND "${PROJECT_SOURCE_DIR}/tools/run-fuzzer" $<TARGET_FILE:${target}> ${seconds})
  set_tests_properties(${target} PROPERTIES LABELS fuzz TIMEOUT 86400 COST ${seconds}
    FAIL_REGULAR_EXPRESSION "number_of_executed_units: +0\n")
endforeach()
