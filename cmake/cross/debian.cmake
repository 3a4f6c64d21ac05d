# Builds for Linux on another processor with Debian's cross compiler, and runs what comes out in an
# emulator. QAL_PROCESSOR says for which; prepare.sh fetches the library that is not Debian's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${QAL_PROCESSOR})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QAL_PROCESSOR)

set(CMAKE_C_COMPILER ${QAL_PROCESSOR}-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER ${QAL_PROCESSOR}-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${QAL_PROCESSOR} -L /usr/${QAL_PROCESSOR}-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/needs.cmake)
set(ZLIB_LIBRARY ${cross_tools}/${QAL_PROCESSOR}/libz.a CACHE FILEPATH "")
