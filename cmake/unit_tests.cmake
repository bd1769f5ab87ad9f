# Unit tests: one executable, but one process per test, so that file-local state needs no reset.

morva_sources(testSources tests/unit "*_test.cpp")
morva_sources(testSupport tests/unit/support "*.cpp")

if(EXISTS /usr/src/googletest/CMakeLists.txt AND NOT MSVC)
  # Built with our own flags: sanitizers and the cross compiler both need that.
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  if(NOT TARGET GTest::gmock_main)
    add_library(GTest::gmock_main ALIAS gmock_main)
  endif()
else()
  find_package(GTest CONFIG REQUIRED)
endif()

add_executable(unit_tests ${testSources} ${testSupport})
target_precompile_headers(unit_tests PRIVATE tests/unit/support/testing.h)
target_include_directories(unit_tests PRIVATE tests/unit)
target_link_libraries(unit_tests PRIVATE morva_core GTest::gmock_main)
if(NOT MSVC)
  # Tests need no speed; compiling them with the optimizer would double the build. An expectation
  # is an if with an else inside, which is no dangling else of the test that writes it after an if.
  target_compile_options(unit_tests PRIVATE -O0 -Wno-dangling-else)
endif()
if(WIN32)
  # A library as other programs put them into ours, and the program that it is put into.
  add_library(asking_library MODULE tests/unit/platform/win/asking_library.cpp)
  set_target_properties(asking_library PROPERTIES PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
  add_dependencies(unit_tests asking_library morva-chrome-host)
endif()
if(MINGW)
  # Nobody debugs the tests under Wine, and the linker takes a minute for what a debugger needs.
  target_compile_options(unit_tests PRIVATE -g0)
  target_link_options(unit_tests PRIVATE -s)
endif()
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=thread")
  # The tests bring an operator new of their own, whose allocations can be made to fail. clang adds
  # one for the thread sanitizer too, but only when it links as a C++ compiler.
  target_link_options(unit_tests PRIVATE --driver-mode=gcc)
  target_link_libraries(unit_tests PRIVATE stdc++ m)
endif()

include(GoogleTest)
set(testProperties LABELS unit TIMEOUT 300 ENVIRONMENT "MORVA_BUILD_DIR=${CMAKE_BINARY_DIR}")
set(leftOut "Drops.*")
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=thread")
  string(APPEND leftOut ":Random/*")  # much computing by one thread
endif()
gtest_discover_tests(unit_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
  TEST_FILTER "-${leftOut}" TEST_LIST otherTests PROPERTIES ${testProperties})
# On Windows no process can choose another folder for the drops.
gtest_discover_tests(unit_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
  TEST_FILTER "Drops.*" TEST_LIST dropsTests PROPERTIES ${testProperties}
  RESOURCE_LOCK "the user's folder")
