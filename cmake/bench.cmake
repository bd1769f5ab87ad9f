# bench/<name>_bench.cpp: Google Benchmark for the pure parts, native builds only. Every other
# bench/<name>.cpp is a program of its own, for example one that the host is compared with. They are
# built by the target `bench`, not by default.

morva_sources(benchPrograms bench "*.cpp")
find_package(benchmark QUIET)
add_custom_target(bench)
foreach(source IN LISTS benchPrograms)
  cmake_path(GET source STEM target)
  if(target MATCHES "_bench$" AND NOT benchmark_FOUND)
    continue()
  endif()
  add_executable(${target} EXCLUDE_FROM_ALL ${source})
  add_dependencies(bench ${target})
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bench")
  target_link_libraries(${target} PRIVATE morva_core)
  if(target MATCHES "_bench$")
    target_link_libraries(${target} PRIVATE benchmark::benchmark_main)
  endif()
endforeach()
