# A cross build may find headers on the machine that builds, and nothing else.
cmake_path(SET cross_tools NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/tools)
set(CMAKE_FIND_ROOT_PATH ${cross_tools}/headers)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_CURRENT_LIST_DIR}/lib/pkgconfig)

set(ZLIB_INCLUDE_DIR ${cross_tools}/headers CACHE PATH "")
set(CURL_INCLUDE_DIR ${cross_tools}/headers CACHE PATH "")
set(CURL_LIBRARY loaded-when-it-is-needed CACHE STRING "")
