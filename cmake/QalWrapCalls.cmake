# With optimisation across files the linker does not tell the compiler that the product calls a
# replacement, which is then left out: what is built here goes without.
set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF)

# Replaces the calls of NAME by __wrap_NAME, for each such function in the source and in the headers of
# the tests that it includes.
function(qal_wrap_calls target source)
  cmake_path(ABSOLUTE_PATH source)
  cmake_path(GET source PARENT_PATH beside)
  file(STRINGS ${source} headers REGEX "^#include \"")
  list(TRANSFORM headers REPLACE "^#include \"(.*)\".*" "\\1")
  set(files ${source})
  foreach(header IN LISTS headers)
    foreach(place ${beside} ${PROJECT_SOURCE_DIR}/tests)
      if(EXISTS ${place}/${header})
        list(APPEND files ${place}/${header})
      endif()
    endforeach()
  endforeach()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${files})
  foreach(file IN LISTS files)
    file(STRINGS ${file} lines REGEX "__wrap_")
    string(REGEX MATCHALL "__wrap_[A-Za-z0-9_]+" found "${lines}")
    list(APPEND wraps ${found})
  endforeach()
  list(REMOVE_DUPLICATES wraps)
  list(TRANSFORM wraps REPLACE "^__wrap_" "-Wl,--wrap=")
  target_link_options(${target} PRIVATE ${wraps})
endfunction()
