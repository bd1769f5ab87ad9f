# The host whose allocations and calls of the system tests/torture makes fail. The linker leads what
# src/platform/posix calls, and what the C++ library calls for it, to the functions that fail.

set(torturedCalls
  malloc calloc realloc
  read write writev pipe2 fcntl dup2 open openat fopen64 close stat fstat fstatat access readlink
  opendir fdopendir readdir mkdir unlink remove rename getrandom
  socket bind listen accept4 connect setsockopt recv send shutdown poll eventfd
  pthread_create posix_spawnp posix_spawn_file_actions_adddup2 syscall waitpid
  curl_global_init curl_multi_init curl_easy_init curl_slist_append curl_multi_add_handle
  curl_multi_poll curl_multi_perform
  _exit)
list(TRANSFORM torturedCalls PREPEND "-Wl,--wrap=")

morva_sources(tortureSources tests/torture "*.cpp")
# Not watched itself: the sanitizers' run-time calls what it wraps, too, before it is ready.
set_source_files_properties(${tortureSources} PROPERTIES COMPILE_OPTIONS -fno-sanitize=all)
add_executable(tortured-host src/host/main.cpp ${tortureSources})
set_target_properties(tortured-host PROPERTIES
  OUTPUT_NAME morva-chrome-host RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/torture")
target_link_libraries(tortured-host PRIVATE morva_core)
# At fixed addresses, as its places are known by them; with the C++ library's calls led away, too.
target_link_options(tortured-host PRIVATE -no-pie -static-libstdc++ -static-libgcc ${torturedCalls})
