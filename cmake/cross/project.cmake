# Settings for which a toolchain file is read too early: here the languages are known.

if(APPLE)
  # CMake asks the machine that it runs on whether libraries are found along paths.
  foreach(language C CXX)
    set(CMAKE_SHARED_LIBRARY_RUNTIME_${language}_FLAG "-Wl,-rpath,")
    set(CMAKE_EXECUTABLE_RUNTIME_${language}_FLAG "-Wl,-rpath,")
  endforeach()
endif()

# GoogleTest for the target, from its sources.
include(FetchContent)
set(INSTALL_GTEST OFF)
FetchContent_Declare(GTest SOURCE_DIR /usr/src/googletest SYSTEM OVERRIDE_FIND_PACKAGE)

# Cases are asked for when they are run, which on macOS is never.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)

# Of the HTTP library there is the header alone: what starts a server is compiled but not linked.
function(leave_out_servers)
  foreach(program sweep_test sweep_e2e_test sweep_demo sweep_servers)
    if(TARGET ${program})
      set_target_properties(${program} PROPERTIES EXCLUDE_FROM_ALL ON)
    endif()
  endforeach()
endfunction()
cmake_language(DEFER CALL leave_out_servers)
