# The version of project() for programs and resource scripts: <morva_version.h>. Whoever wants it
# links morva_version or, for one source of many, takes MORVA_VERSION_FOLDER as an include folder:
# a new version then compiles only what shows it.
set(MORVA_VERSION_FOLDER "${CMAKE_BINARY_DIR}/generated")
configure_file("${CMAKE_CURRENT_LIST_DIR}/morva_version.h.in"
  "${MORVA_VERSION_FOLDER}/morva_version.h" @ONLY)
add_library(morva_version INTERFACE)
target_include_directories(morva_version INTERFACE "${MORVA_VERSION_FOLDER}")

set_source_files_properties(src/common/product_version.cpp PROPERTIES
  INCLUDE_DIRECTORIES "${MORVA_VERSION_FOLDER}" SKIP_PRECOMPILE_HEADERS ON)
