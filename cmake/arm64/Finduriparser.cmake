# Debian's liburiparser-dev cannot be installed for two architectures at once. Its headers are the same for all of
# them, so those of the other one will do; the library is from the package that programs need to run.
find_path(URIPARSER_INCLUDE_DIR uriparser/UriBase.h)
find_library(URIPARSER_LIBRARY liburiparser.so.1)
file(STRINGS ${URIPARSER_INCLUDE_DIR}/uriparser/UriBase.h version REGEX "define URI_VER_(MAJOR|MINOR|RELEASE) ")
list(TRANSFORM version REPLACE "[^0-9]" "")
list(JOIN version . version)

set(uriparser_char_FOUND TRUE)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(uriparser
  REQUIRED_VARS URIPARSER_LIBRARY URIPARSER_INCLUDE_DIR VERSION_VAR version HANDLE_COMPONENTS)
add_library(uriparser::uriparser SHARED IMPORTED)
set_target_properties(uriparser::uriparser PROPERTIES
  IMPORTED_LOCATION ${URIPARSER_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${URIPARSER_INCLUDE_DIR})
