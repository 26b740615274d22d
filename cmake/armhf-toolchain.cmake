# Cross build for 32-bit Arm (the device's word size: 32-bit size_t, long and
# time_t) with Debian's arm-linux-gnueabihf compilers against multiarch armhf
# packages. Programs run under qemu-arm, which ctest and the tests themselves
# use, so nothing depends on the host's binfmt registrations.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Only notes that GCC 7.1 changed how some arguments are passed on Arm; all of
# this project is built with one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# Debian's cross compilers search the multiarch directories
# (/usr/lib/arm-linux-gnueabihf, /usr/include/arm-linux-gnueabihf) themselves;
# CMake and pkg-config must look there instead of at the host's packages.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# The whole run-time (loader, libc, libstdc++, json-c, TurboJPEG) comes from
# the multiarch root "/", so that loader and libc always match; the cross
# toolchain's own libc under /usr/arm-linux-gnueabihf can be older.
find_program(UVC_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${UVC_QEMU_ARM} -L /)
