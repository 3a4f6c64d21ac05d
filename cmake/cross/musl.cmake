# Builds for Linux on x86-64 with another C library. What comes out is static and runs here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(zig_target x86_64-linux-musl)
include(${CMAKE_CURRENT_LIST_DIR}/zig.cmake)
# Debian's: what is used of it calls nothing that is glibc's alone.
set(ZLIB_LIBRARY /usr/lib/x86_64-linux-gnu/libz.a CACHE FILEPATH "")
