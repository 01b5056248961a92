# One interface target that every target of ours links: language, warnings, hardening, sanitizers.
add_library(orvane_settings INTERFACE)
target_compile_features(orvane_settings INTERFACE cxx_std_20)
target_include_directories(orvane_settings INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(orvane_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wcast-qual -Wformat=2 -Wundef
  -Wimplicit-fallthrough -Wextra-semi -Wzero-as-null-pointer-constant
  -fstack-protector-strong
  $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wreserved-identifier -Wreserved-macro-identifier>)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Where several files are compiled at a time, it takes every file for a header but the one that includes the others.
  target_compile_options(orvane_settings INTERFACE
    $<$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>:-Wno-subobject-linkage>)
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Release")
  # What each of these costs is in docs/performance.md; ci/check-release looks for them in the program.
  target_compile_definitions(orvane_settings INTERFACE _FORTIFY_SOURCE=3 _GLIBCXX_ASSERTIONS)
  if(NOT APPLE)
    target_compile_options(orvane_settings INTERFACE -fstack-clash-protection)
  endif()
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64)$")
    target_compile_options(orvane_settings INTERFACE -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(orvane_settings INTERFACE -mbranch-protection=standard)
  endif()
  # Small before fast: the pages of a program that runs once on a machine are shared with nobody.
  # The debug symbols go into a package of their own.
  set(CMAKE_CXX_FLAGS_RELEASE "-Os -g -DNDEBUG -ffunction-sections -fdata-sections")
  # The same program wherever it is built. (When linking, too, since only then the code is generated.)
  foreach(place IN ITEMS "${PROJECT_SOURCE_DIR}=." "${PROJECT_BINARY_DIR}=./build")
    add_compile_options("-ffile-prefix-map=${place}")
    add_link_options("-ffile-prefix-map=${place}")
  endforeach()
  if(APPLE)
    target_link_options(orvane_settings INTERFACE -Wl,-dead_strip)
  else()
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
    target_link_options(orvane_settings INTERFACE -Wl,--gc-sections)
    # The few parts of the C++ library that are used, instead of all of it to load and to relocate: an
    # eighth less time to start, and 0.1 MiB less memory for each process (docs/performance.md).
    target_link_options(orvane_settings INTERFACE -static-libstdc++ -static-libgcc)
  endif()
endif()
if(NOT APPLE)
  # Only what is used is loaded; everything is bound at start and read-only afterwards.
  target_link_options(orvane_settings INTERFACE -Wl,--as-needed -Wl,-z,relro,-z,now)
endif()

set(ORVANE_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
if(ORVANE_SANITIZE)
  # For every object, those of GoogleTest too where it is built from its sources.
  add_compile_options(-fsanitize=${ORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ORVANE_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND ORVANE_SANITIZE MATCHES address AND NOT ORVANE_FUZZ)
    # As a library, as GCC has it: what a test puts in the place of a system call can then hand on to
    # the sanitizer's own. (The fuzzer brings a C++ library that would be loaded before it.)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
      OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
    cmake_path(GET runtime PARENT_PATH runtime)
    add_link_options(-shared-libasan -Wl,-rpath,${runtime})
  endif()
endif()
