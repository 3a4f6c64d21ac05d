# What the shared library exports: the names of this list and nothing else. The Debian package is
# checked against the same list, which also tells the release that brought each name. On macOS what
# the headers mark is exported, which `./run lint` compares with the list.
set(qal_node QAL_${PROJECT_VERSION_MAJOR})
set(qal_symbol_list ${PROJECT_SOURCE_DIR}/packaging/debian/libqal${PROJECT_VERSION_MAJOR}.symbols)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${qal_symbol_list})
file(STRINGS ${qal_symbol_list} qal_symbols REGEX "^ .*@${qal_node} ")
list(TRANSFORM qal_symbols REPLACE "^ (.*)@.*" "\\1")
list(REMOVE_ITEM qal_symbols ${qal_node})

set(qal_exports ${PROJECT_BINARY_DIR}/qal.exports)
list(JOIN qal_symbols ";\n    " qal_symbols)
file(CONFIGURE OUTPUT ${qal_exports} @ONLY
     CONTENT "@qal_node@ {\n  global:\n    @qal_symbols@;\n  local:\n    *;\n};\n")
target_link_options(qal PRIVATE -Wl,--version-script,${qal_exports} -Wl,--no-undefined-version)
set_target_properties(qal PROPERTIES LINK_DEPENDS ${qal_exports})
