# Installation: the tool, the libraries with their headers, the CMake package, qal.pc and the manual.
install(TARGETS kalmora-sweep RUNTIME COMPONENT runtime)
install(
  TARGETS qal kalmora
  EXPORT qalTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  FILE_SET HEADERS DESTINATION "${header_dir}" COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qal)
install(
  EXPORT qalTargets
  NAMESPACE qal::
  DESTINATION ${package_dir}
  COMPONENT development)
configure_package_config_file(
  cmake/qalConfig.cmake.in ${PROJECT_BINARY_DIR}/qalConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/qalConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/qalConfig.cmake ${PROJECT_BINARY_DIR}/qalConfigVersion.cmake
  DESTINATION ${package_dir}
  COMPONENT development)

# A static library cannot name what it needs itself, so the package file does it for every link.
set(qal_pc_private "-lz -pthread")
if(APPLE AND QAL_FOUNDATION)
  string(APPEND qal_pc_private " ${qal_foundation}")
endif()
if(BUILD_SHARED_LIBS)
  set(qal_pc_libs "")
  set(qal_pc_libs_private ${qal_pc_private})
else()
  set(qal_pc_libs " ${qal_pc_private} -l${qal_cxx_runtime} -lm")
  set(qal_pc_libs_private "")
endif()
set(qal_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# Found from where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH qal_pc_prefix /prefix/${qal_pc_dir} /prefix)
configure_file(cmake/qal.pc.in ${PROJECT_BINARY_DIR}/qal.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/qal.pc
  DESTINATION ${qal_pc_dir}
  COMPONENT development)

file(GLOB tool_pages CONFIGURE_DEPENDS docs/man/*.1)
install(
  FILES ${tool_pages}
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT runtime)
foreach(section 3 7)
  file(GLOB library_pages CONFIGURE_DEPENDS docs/man/*.${section})
  install(
    FILES ${library_pages}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
    COMPONENT documentation)
endforeach()

# Each component may travel alone, and the licence goes with it.
foreach(component runtime development documentation)
  install(
    FILES LICENSE
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT ${component})
endforeach()
