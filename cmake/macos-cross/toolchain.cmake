# Builds for macOS on Linux with Zig's compiler, which carries the system's headers and libraries.
# QAL_MACOS_PROCESSOR says for which processor; prepare.sh fetches everything.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${QAL_MACOS_PROCESSOR})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QAL_MACOS_PROCESSOR)

cmake_path(SET cross_tools NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/tools)
set(zig ${cross_tools}/zig-0.11.0/zig)
# Zig traps undefined behaviour in every build that is not optimised unless it is told not to.
set(zig_flags -target ${QAL_MACOS_PROCESSOR}-macos -fno-sanitize=undefined)
set(CMAKE_C_COMPILER ${zig} cc ${zig_flags})
# Linking what CMake tries, or without -O2 the program that tells the compiler's name, would have Zig
# build the C++ runtime in a mode that nothing else needs.
set(CMAKE_CXX_COMPILER ${zig} c++ ${zig_flags} -O2)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# CMake asks compilers for this in a way that Zig refuses.
set(CMAKE_SIZEOF_VOID_P 8)
find_program(CMAKE_AR NAMES llvm-ar REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool-14 REQUIRED)

# Nothing of the machine that builds is for the one that it builds for.
set(CMAKE_FIND_ROOT_PATH ${cross_tools}/macos-headers)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_CURRENT_LIST_DIR}/lib/pkgconfig)

set(ZLIB_INCLUDE_DIR ${cross_tools}/macos-headers CACHE PATH "")
set(ZLIB_LIBRARY ${CMAKE_CURRENT_LIST_DIR}/lib/libz.tbd CACHE FILEPATH "")
set(CURL_INCLUDE_DIR ${cross_tools}/macos-headers CACHE PATH "")
set(CURL_LIBRARY loaded-when-it-is-needed CACHE STRING "")
