# Compiles for macOS on Linux with clang, lld and LLVM's tools. For ci/macos/cross-check, which prepares
# the sysroot:
#   MACOS_ARCH     arm64 or x86_64
#   MACOS_SYSROOT  headers and stub libraries, in the layout of an SDK
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOS_ARCH MACOS_SYSROOT CMAKE_OSX_DEPLOYMENT_TARGET)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22)
set(CMAKE_SYSTEM_PROCESSOR ${MACOS_ARCH})
set(CMAKE_OSX_ARCHITECTURES ${MACOS_ARCH})
set(CMAKE_OSX_SYSROOT ${MACOS_SYSROOT})

set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_CXX_COMPILER_TARGET ${MACOS_ARCH}-apple-macos${CMAKE_OSX_DEPLOYMENT_TARGET})
# Debian's libc++ does not mark what came with which macOS; the sysroot's configuration does.
set(CMAKE_CXX_FLAGS_INIT "-isystem ${MACOS_SYSROOT}/config -D_LIBCPP_REMOVE_TRANSITIVE_INCLUDES")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -Wl,-dead_strip_dylibs")
foreach(tool ar ranlib nm strip objdump otool install-name-tool)
  string(TOUPPER ${tool} variable)
  string(REPLACE - _ variable ${variable})
  set(CMAKE_${variable} llvm-${tool}-19)
endforeach()

# Nothing of this machine but its programs.
set(CMAKE_FIND_ROOT_PATH ${MACOS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${MACOS_SYSROOT}/usr/lib/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${MACOS_SYSROOT})
