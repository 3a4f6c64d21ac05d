# Archives for systems without packages of their own: `cpack` makes one of each component. All
# unpack to the same directory.
set(CPACK_GENERATOR TGZ)
set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENTS_ALL runtime development documentation)
set(CPACK_STRIP_FILES ON)
include(CPack)
