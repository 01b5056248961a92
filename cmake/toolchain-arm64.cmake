# Builds for arm64 Linux on a Debian machine of another architecture, and runs what is built in an emulator.
# `ci/install-packages arm64` installs the compiler, the libraries and the emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# In the cache, where packaging/linux/bill-of-materials looks for it.
set(CMAKE_CXX_COMPILER /usr/bin/${CMAKE_LIBRARY_ARCHITECTURE}-g++ CACHE FILEPATH "The C++ compiler")
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64)

# Debian keeps each architecture's libraries in a directory of its own and shares the headers.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:/usr/share/pkgconfig)
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR}/arm64)
