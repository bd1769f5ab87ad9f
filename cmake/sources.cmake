# morva_sources(RESULT FOLDER GLOB [EXCLUDE PATH...]): the sources under FOLDER that match GLOB. Of
# the folders named win and posix only the one of the target system counts. An empty or missing
# folder gives an empty list.
function(morva_sources result folder glob)
  cmake_parse_arguments(PARSE_ARGV 3 arg "" "" "EXCLUDE")
  file(GLOB_RECURSE found CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
    "${PROJECT_SOURCE_DIR}/${folder}/${glob}")
  if(WIN32)
    list(FILTER found EXCLUDE REGEX "/posix/")
  else()
    list(FILTER found EXCLUDE REGEX "/win/")
  endif()
  if(arg_EXCLUDE)
    list(REMOVE_ITEM found ${arg_EXCLUDE})
  endif()
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

# morva_scope(RESULT TARGET): the keyword for what TARGET and its users need.
function(morva_scope result target)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set(${result} INTERFACE PARENT_SCOPE)
  else()
    set(${result} PUBLIC PARENT_SCOPE)
  endif()
endfunction()
