# One interface target that every target of ours links: language, warnings, hardening, sanitizers.
add_library(orvane_settings INTERFACE)
target_compile_features(orvane_settings INTERFACE cxx_std_20)
target_include_directories(orvane_settings INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(orvane_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wcast-qual -Wformat=2 -Wundef
  -Wimplicit-fallthrough -Wextra-semi -Wzero-as-null-pointer-constant
  -fstack-protector-strong)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(orvane_settings INTERFACE _FORTIFY_SOURCE=2)
endif()
if(NOT APPLE)
  # Only what is used is loaded; everything is bound at start and read-only afterwards.
  target_link_options(orvane_settings INTERFACE -Wl,--as-needed -Wl,-z,relro,-z,now)
endif()

set(ORVANE_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
if(ORVANE_SANITIZE)
  target_compile_options(orvane_settings INTERFACE
    -fsanitize=${ORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(orvane_settings INTERFACE -fsanitize=${ORVANE_SANITIZE})
endif()
