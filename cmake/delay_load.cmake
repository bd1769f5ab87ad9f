# morva_delay_load(TARGET LIBRARY...): what links TARGET loads these libraries of the system when it
# first calls them, not at its start. MinGW's linker cannot do that, but takes import libraries for
# it, which are made here of the names in the ordinary ones; src/platform/win/delay_load_win.cpp
# does the loading, and MSVC's own helper there.
function(morva_delay_load target)
  foreach(library ${ARGN})
    if(MSVC)
      target_link_libraries(${target} INTERFACE ${library})
      target_link_options(${target} INTERFACE "/DELAYLOAD:${library}.dll")
      continue()
    endif()
    find_library(MORVA_IMPORTS_${library} ${library} REQUIRED)
    execute_process(COMMAND ${CMAKE_NM} --defined-only "${MORVA_IMPORTS_${library}}"
      OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "T [A-Za-z][A-Za-z0-9_]*\n" names "${symbols}")
    list(TRANSFORM names REPLACE "T (.*)\n" "\\1\n")
    list(JOIN names "" names)
    set(folder "${CMAKE_BINARY_DIR}/delay_load")
    file(CONFIGURE OUTPUT "${folder}/${library}.def"
      CONTENT "LIBRARY ${library}.dll\nEXPORTS\n@names@" @ONLY)
    # The name by which it is called gets into what is made: it says nothing of the folder.
    execute_process(COMMAND ${CMAKE_DLLTOOL} --input-def ${library}.def
      --output-delaylib lib${library}_delayed.a WORKING_DIRECTORY "${folder}"
      COMMAND_ERROR_IS_FATAL ANY)
    target_link_libraries(${target} INTERFACE "${folder}/lib${library}_delayed.a")
  endforeach()
  if(MSVC)
    target_link_libraries(${target} INTERFACE delayimp)
  endif()
endfunction()
