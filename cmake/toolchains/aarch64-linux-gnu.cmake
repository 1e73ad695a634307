# Cross build for 64-bit ARM (arm64) on a Debian machine: Debian's cross
# compiler (crossbuild-essential-arm64) and the arm64 libraries of Debian's
# multiarch folders (dpkg --add-architecture arm64; libicu-dev:arm64, ...).
# Programs built here run under qemu's user-mode emulator, which ctest and
# the test discovery use through CMAKE_CROSSCOMPILING_EMULATOR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The arm64 dynamic loader and C library come from the multiarch packages
# (libc6:arm64, /lib/ld-linux-aarch64.so.1), so qemu needs no -L prefix: with
# one (-L /usr/aarch64-linux-gnu), qemu 7.2 leaves every forked child spinning
# before fork() returns in it.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64-static)
# pkg-config reads the arm64 modules, and the architecture-independent ones.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
