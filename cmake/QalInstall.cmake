# Installation: the tool, the libraries with their headers, the CMake package, qal.pc and the manual.
set(qal_libraries qal)
if(QAL_BUILD_KALMORA)
  list(APPEND qal_libraries kalmora)
  install(TARGETS kalmora-sweep RUNTIME COMPONENT runtime)
endif()
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR})
if(IS_ABSOLUTE "${header_dir}")  # which the package would take for one below the prefix
  cmake_path(RELATIVE_PATH header_dir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
endif()
install(
  TARGETS ${qal_libraries}
  EXPORT qalTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  FILE_SET HEADERS DESTINATION "${header_dir}" COMPONENT development
  INCLUDES DESTINATION "${header_dir}")  # for a CMake before 3.23, which knows no file sets

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qal)
install(
  EXPORT qalTargets
  NAMESPACE qal::
  DESTINATION ${package_dir}
  COMPONENT development)
# The build tree can be used like an installed one. Libraries name their private needs there.
set(qal_private_needs qal_build_flags qal_common_flags)
if(TARGET qal_gnustep)
  list(APPEND qal_private_needs qal_gnustep)
endif()
export(
  TARGETS ${qal_libraries} ${qal_private_needs}
  NAMESPACE qal::
  FILE qalTargets.cmake)
configure_package_config_file(
  cmake/qalConfig.cmake.in ${PROJECT_BINARY_DIR}/qalConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/qalConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/qalConfig.cmake ${PROJECT_BINARY_DIR}/qalConfigVersion.cmake
  DESTINATION ${package_dir}
  COMPONENT development)

# A static library cannot name what it needs itself, so qal.pc does it for every link. The
# program-level half is static beside a shared library, too.
list(TRANSFORM CMAKE_DL_LIBS PREPEND -l OUTPUT_VARIABLE qal_pc_dl)
list(JOIN qal_pc_dl " " qal_pc_dl)
set(qal_pc_needs "-lz ${qal_pc_dl} -pthread")
if(APPLE AND QAL_FOUNDATION)
  string(APPEND qal_pc_needs " ${qal_foundation}")
endif()
set(qal_pc_cxx "-l${qal_cxx_runtime} -lm")
set(qal_pc_libs -lqal)
set(qal_pc_libs_private "")
if(QAL_BUILD_KALMORA)
  string(PREPEND qal_pc_libs "-lkalmora ")
endif()
if(QAL_BUILD_KALMORA OR NOT BUILD_SHARED_LIBS)
  string(APPEND qal_pc_libs " ${qal_pc_needs}")
endif()
if(BUILD_SHARED_LIBS)
  set(qal_pc_libs_private "${qal_pc_needs} ${qal_pc_cxx}")
  if(APPLE)
    # The library's name there says that it is looked for where the program says.
    string(APPEND qal_pc_libs " -Wl,-rpath,\${libdir}")
  endif()
else()
  string(APPEND qal_pc_libs " ${qal_pc_cxx}")
endif()
# Found from where the file lies, so that an installed tree can be moved.
set(qal_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${qal_pc_dir}")
  set(qal_pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH qal_pc_prefix /prefix/${qal_pc_dir} /prefix)
  string(PREPEND qal_pc_prefix "\${pcfiledir}/")
endif()
set(qal_pc_libdir "\${prefix}")
set(qal_pc_includedir "\${prefix}")
cmake_path(APPEND qal_pc_libdir "${CMAKE_INSTALL_LIBDIR}")  # which replaces it if absolute
cmake_path(APPEND qal_pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}")
foreach(place prefix libdir includedir)
  string(REPLACE " " "\\ " qal_pc_${place} "${qal_pc_${place}}")  # or it would be two words
endforeach()
configure_file(cmake/qal.pc.in ${PROJECT_BINARY_DIR}/qal.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/qal.pc
  DESTINATION ${qal_pc_dir}
  COMPONENT development)

if(QAL_BUILD_KALMORA)
  file(GLOB tool_pages CONFIGURE_DEPENDS docs/man/*.1)
  install(
    FILES ${tool_pages}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT runtime)
endif()
# Each function has a page of its own, too, which leads to its area's.
file(GLOB library_pages CONFIGURE_DEPENDS docs/man/*.3)
if(NOT QAL_BUILD_KALMORA)
  list(FILTER library_pages EXCLUDE REGEX "/kalmora_")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${library_pages})
foreach(page ${library_pages})
  cmake_path(GET page FILENAME area_page)
  file(STRINGS ${page} function_pages REGEX "^\\.Nm ")
  list(TRANSFORM function_pages REPLACE "^\\.Nm ([^ ]+).*" "\\1.3")
  list(REMOVE_ITEM function_pages ${area_page})
  list(TRANSFORM function_pages PREPEND ${PROJECT_BINARY_DIR}/man3/)
  foreach(function_page ${function_pages})
    file(CONFIGURE OUTPUT ${function_page} CONTENT ".so man3/${area_page}\n")
  endforeach()
  install(
    FILES ${page} ${function_pages}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man3
    COMPONENT documentation)
endforeach()
install(
  FILES docs/man/qal.7
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man7
  COMPONENT documentation)

# Each component may travel alone, and the licence goes with it.
set(licence_dir ${CMAKE_INSTALL_DOCDIR})
if(NOT PROJECT_IS_TOP_LEVEL)  # as that is the directory of the project around this one
  set(licence_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/qal)
endif()
foreach(component runtime development documentation)
  install(
    FILES LICENSE
    DESTINATION ${licence_dir}
    COMPONENT ${component})
endforeach()
