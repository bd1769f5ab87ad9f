# yyjson as a static library: its one source, brought by `./dev setup`, compiled with our compilers and
# their sanitizers; with vcpkg its package.

set(MORVA_YYJSON_DIR "${PROJECT_SOURCE_DIR}/build/deps/yyjson-0.10.0/src" CACHE PATH "Where yyjson.c is")
if(EXISTS "${MORVA_YYJSON_DIR}/yyjson.c")
  add_library(yyjson STATIC "${MORVA_YYJSON_DIR}/yyjson.c")
  target_include_directories(yyjson SYSTEM PUBLIC "${MORVA_YYJSON_DIR}")
  # The sanitizers, and the like, that the preset asks for.
  separate_arguments(yyjsonFlags NATIVE_COMMAND "${CMAKE_CXX_FLAGS}")
  target_compile_options(yyjson PRIVATE ${yyjsonFlags} -O2)
  morva_reproducible(yyjson)
  # What the host never does: write documents, merge patches, pointers, other dialects.
  target_compile_definitions(yyjson
    PUBLIC YYJSON_DISABLE_WRITER YYJSON_DISABLE_UTILS YYJSON_DISABLE_NON_STANDARD)
else()
  find_package(yyjson CONFIG REQUIRED)
  add_library(yyjson ALIAS yyjson::yyjson)
endif()
