# What makes the Windows program fit to be handed out: the same bytes from every folder and at every
# hour, and resources that say which program it is and what it expects of the system.

# morva_reproducible(TARGET): no trace of the build folder and of the time in what TARGET compiles
# and links. Paths become what they are from the build folder (the last map that fits counts), as
# ccache writes them too, so that it makes no difference.
function(morva_reproducible target)
  if(NOT MINGW)
    return()
  endif()
  foreach(map "${PROJECT_SOURCE_DIR}=../.." "${PROJECT_SOURCE_DIR}/build=.." "${CMAKE_BINARY_DIR}=.")
    target_compile_options(${target} PRIVATE "-ffile-prefix-map=${map}")
  endforeach()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    # The map is where tools/components.py sees what of others is in the program. Sections that begin
    # at pages of the file can be mapped: otherwise Wine reads them all into memory at each start.
    target_link_options(${target} PRIVATE
      -Wl,--no-insert-timestamp -Wl,-Map=${target}.map -Wl,--file-alignment,4096)
  endif()
endfunction()

# morva_resources(TARGET): version and application manifest of a Windows program.
function(morva_resources target)
  if(NOT WIN32)
    return()
  endif()
  set(manifest "${MORVA_VERSION_FOLDER}/morva-chrome-host.manifest")
  configure_file(packaging/morva-chrome-host.manifest.in "${manifest}" @ONLY)
  target_sources(${target} PRIVATE packaging/version.rc)
  set_source_files_properties(packaging/version.rc PROPERTIES
    INCLUDE_DIRECTORIES "${MORVA_VERSION_FOLDER}"
    OBJECT_DEPENDS "${MORVA_VERSION_FOLDER}/morva_version.h")
  if(MSVC)
    target_sources(${target} PRIVATE "${manifest}")
    return()
  endif()
  target_sources(${target} PRIVATE packaging/manifest.rc)
  set_source_files_properties(packaging/manifest.rc PROPERTIES
    INCLUDE_DIRECTORIES "${MORVA_VERSION_FOLDER}" OBJECT_DEPENDS "${manifest}")
endfunction()

if(WIN32)
  enable_language(RC)
endif()
