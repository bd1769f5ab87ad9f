# Every bench/**/*.cpp is a program of its own: what the host is compared with, and what measures.
# They are built by the target `bench`, not by default.

morva_sources(benchPrograms bench "*.cpp")
add_custom_target(bench)
foreach(source IN LISTS benchPrograms)
  cmake_path(GET source STEM target)
  add_executable(${target} EXCLUDE_FROM_ALL ${source})
  add_dependencies(bench ${target})
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bench")
  target_link_libraries(${target} PRIVATE morva_core)
endforeach()
