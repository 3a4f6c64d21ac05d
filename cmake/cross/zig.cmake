# Zig's compiler, which carries the headers and libraries of many systems: the toolchain file that
# includes this sets `zig_target`.
include(${CMAKE_CURRENT_LIST_DIR}/needs.cmake)
set(zig ${cross_tools}/zig-0.11.0/zig)
# Zig traps undefined behaviour in every build that is not optimised unless it is told not to.
set(zig_flags -target ${zig_target} -fno-sanitize=undefined)
set(CMAKE_C_COMPILER ${zig} cc ${zig_flags})
# Linking what CMake tries, or without -O2 the program that tells the compiler's name, would have Zig
# build the C++ runtime in a mode that nothing else needs.
set(CMAKE_CXX_COMPILER ${zig} c++ ${zig_flags} -O2)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# CMake asks compilers for this in a way that Zig refuses.
set(CMAKE_SIZEOF_VOID_P 8)
