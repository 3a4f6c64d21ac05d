# GoogleTest for the target, from its sources.
include(FetchContent)
FetchContent_Declare(GTest SOURCE_DIR /usr/src/googletest SYSTEM OVERRIDE_FIND_PACKAGE)
