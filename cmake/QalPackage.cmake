# Archives for systems without packages of their own: `cpack` makes one of each component.
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_VENDOR "The qal developers")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development documentation)
set(CPACK_STRIP_FILES ON)
include(CPack)
