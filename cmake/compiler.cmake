# What every source of ours is compiled with: warnings as errors, and ccache where there is one.

add_library(morva_options INTERFACE)
if(MSVC)
  target_compile_options(morva_options INTERFACE /W4 /WX /permissive- /utf-8 /Zc:__cplusplus /EHsc)
else()
  target_compile_options(morva_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-qual -Wformat=2
    -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wimplicit-fallthrough
    # Naming only the members that differ from their defaults is what designated initializers are for.
    -Wno-missing-field-initializers)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # What a lock guards, as src/platform/locks.h marks it; "beta" is the order of nested locks.
    target_compile_options(morva_options INTERFACE -Wthread-safety -Wthread-safety-beta)
  elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(morva_options INTERFACE
      -Wduplicated-cond -Wduplicated-branches -Wlogical-op
      # GCC 12 gives these wrongly for std::string when it optimizes.
      -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread)
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
      # What a sanitizer adds makes GCC see reads that cannot happen.
      target_compile_options(morva_options INTERFACE -Wno-maybe-uninitialized)
    endif()
  endif()
endif()
if(WIN32)
  target_compile_definitions(morva_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
endif()

find_program(MORVA_CCACHE ccache)
if(MORVA_CCACHE AND NOT MSVC)
  # A precompiled header is only cached when ccache may overlook its macros and time stamps, and
  # only found again from another build folder when folder names do not count.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
    CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${MORVA_CCACHE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-fpch-preprocess)
  else()
    add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
  endif()
endif()
