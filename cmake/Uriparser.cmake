# uriparser::uriparser: the system's library, or built from its sources into the program. That is for macOS, where
# the one available is for one processor and one system.
set(ORVANE_URIPARSER_SOURCE "" CACHE PATH "Where uriparser's sources are, to build it into the daemon")

if(NOT ORVANE_URIPARSER_SOURCE)
  find_package(uriparser 0.9 REQUIRED COMPONENTS char)
  return()
endif()

enable_language(C)
set(URIPARSER_BUILD_DOCS OFF)
set(URIPARSER_BUILD_TESTS OFF)
set(URIPARSER_BUILD_TOOLS OFF)
set(URIPARSER_BUILD_WCHAR_T OFF)
set(URIPARSER_ENABLE_INSTALL OFF)
set(URIPARSER_SHARED_LIBS OFF)
add_subdirectory(${ORVANE_URIPARSER_SOURCE} ${CMAKE_BINARY_DIR}/uriparser EXCLUDE_FROM_ALL SYSTEM)
