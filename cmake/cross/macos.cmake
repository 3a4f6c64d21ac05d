# Builds for macOS on Linux. QAL_PROCESSOR says for which processor; prepare.sh fetches everything.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${QAL_PROCESSOR})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QAL_PROCESSOR)

set(zig_target ${QAL_PROCESSOR}-macos)
include(${CMAKE_CURRENT_LIST_DIR}/zig.cmake)
find_program(CMAKE_AR NAMES llvm-ar REQUIRED)
find_program(CMAKE_RANLIB NAMES llvm-ranlib REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool-14 REQUIRED)
set(ZLIB_LIBRARY ${CMAKE_CURRENT_LIST_DIR}/lib/libz.tbd CACHE FILEPATH "")
