# morva_sources(RESULT FOLDER GLOB [EXCLUDE PATH...]): the sources under FOLDER that match GLOB. Of
# the folders named win and posix only the one of the target system counts.
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
