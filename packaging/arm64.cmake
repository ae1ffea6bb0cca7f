# Toolchain: arm64 programs made on another machine, with Debian's cross compiler and with Debian's
# arm64 libraries as a foreign architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# The cross compiler's own C library lags behind Debian's, which has the repairs.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-B/usr/lib/aarch64-linux-gnu -L/usr/lib/aarch64-linux-gnu")
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig)
