# GTest::gtest, GTest::gtest_main and GTest::gmock: the system's libraries, or built from their sources
# where those do not fit the C++ library or the system that is built for.
set(ORVANE_GTEST_SOURCE "" CACHE PATH "Where GoogleTest's sources are, to build it from them")

if(NOT ORVANE_GTEST_SOURCE)
  find_package(GTest 1.12 REQUIRED)
  return()
endif()

# add_google_library(NAME PART SOURCE USES...): `SOURCE` of googletest or googlemock.
function(add_google_library name part source)
  add_library(${name} STATIC EXCLUDE_FROM_ALL ${ORVANE_GTEST_SOURCE}/${part}/src/${source})
  add_library(GTest::${name} ALIAS ${name})
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_include_directories(${name} PRIVATE ${ORVANE_GTEST_SOURCE}/${part})
  target_include_directories(${name} SYSTEM PUBLIC ${ORVANE_GTEST_SOURCE}/${part}/include)
  target_link_libraries(${name} PUBLIC ${ARGN})
endfunction()

add_google_library(gtest googletest gtest-all.cc Threads::Threads)
add_google_library(gtest_main googletest gtest_main.cc gtest)
add_google_library(gmock googlemock gmock-all.cc gtest)
