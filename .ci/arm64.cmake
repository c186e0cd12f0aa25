# Toolchain of the preset arm64: Debian's cross compiler, the arm64 libraries that are installed
# beside the machine's own, and qemu, which runs what was built for the tests. With
# -DCMAKE_CXX_COMPILER=clang++ it is clang's.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++ CACHE STRING "")
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# If nothing is said, pkg-config finds the machine's own libraries.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
