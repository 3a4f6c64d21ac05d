# How every target of this project is compiled. Linked as a private requirement, so nothing of it
# reaches a program that uses the installed library.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)  # as the tree's place is not to be in the binaries

# Units are not to be compiled as one, whoever asks for it: names in anonymous namespaces repeat from
# unit to unit, and tests replace calls between units.
set(CMAKE_UNITY_BUILD OFF)

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

include(CheckPIESupported)
check_pie_supported()

set(QAL_SANITIZE "" CACHE STRING "Sanitizers to build with, such as address,undefined")
option(QAL_WERROR "Treat warnings as errors" OFF)
set(QAL_AUTO_VAR_INIT "" CACHE STRING "What to fill unset variables with: pattern or zero")
set_property(CACHE QAL_AUTO_VAR_INIT PROPERTY STRINGS "" pattern zero)
option(QAL_COVERAGE "Count the lines and branches that run (g++ only)" OFF)
option(QAL_CONDITIONS "Record which conditions decided a branch (clang 18 or later)" OFF)

# Build paths stay out of the binaries: two builds in different folders are equal.
set(qal_build_paths -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
                    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)

# For everything that is built.
add_library(qal_common_flags INTERFACE)
target_compile_options(
  qal_common_flags
  INTERFACE -Wall
            -Wextra
            -Wshadow
            -Wconversion
            -Wformat=2
            "$<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety;-Wthread-safety-negative>"
            $<$<BOOL:${QAL_WERROR}>:-Werror>
            # Nothing may rest on what memory held before: some presets choose it.
            $<$<BOOL:${QAL_AUTO_VAR_INIT}>:-ftrivial-auto-var-init=${QAL_AUTO_VAR_INIT}>
            ${qal_build_paths})
# Optimised across files, a program is compiled when it is linked.
target_link_options(qal_common_flags INTERFACE "$<$<CXX_COMPILER_ID:GNU>:${qal_build_paths}>")
if(QAL_SANITIZE)
  target_compile_options(qal_common_flags INTERFACE -fno-omit-frame-pointer)
  target_link_options(qal_common_flags INTERFACE -fsanitize=${QAL_SANITIZE})
endif()
if(QAL_COVERAGE)
  # Counted atomically, for the programs with threads.
  target_compile_options(qal_common_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(qal_common_flags INTERFACE --coverage)
endif()
if(NOT APPLE)
  target_link_options(qal_common_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
endif()

# For what is installed.
add_library(qal_build_flags INTERFACE)
target_link_libraries(qal_build_flags INTERFACE qal_common_flags)
if(NOT QAL_SANITIZE AND NOT QAL_COVERAGE AND NOT QAL_CONDITIONS)
  # The sanitizers replace what these would check; a coverage build is not optimised.
  target_compile_options(
    qal_build_flags INTERFACE -fstack-protector-strong
                              $<$<NOT:$<PLATFORM_ID:Darwin>>:-fstack-clash-protection>
                              $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>)
endif()
if(QAL_SANITIZE)
  # Undefined behaviour ends the program; what is defined but suspicious is only reported.
  target_compile_options(qal_build_flags INTERFACE -fsanitize=${QAL_SANITIZE}
                                                   -fno-sanitize-recover=undefined)
endif()
if(QAL_CONDITIONS)
  # Some counts are the difference of others, so threads must not lose any.
  target_compile_options(qal_build_flags INTERFACE -fprofile-instr-generate -fprofile-update=atomic
                                                   -fcoverage-mapping -fcoverage-mcdc)
  target_link_options(qal_common_flags INTERFACE -fprofile-instr-generate)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|i.86" AND NOT APPLE)
  target_compile_options(qal_build_flags INTERFACE -fcf-protection)
endif()

# For the tests: optimising them and describing every type of theirs to a debugger takes most of a
# build's time, and only those that compare with a model exhaustively gain by the first.
add_library(qal_test_flags INTERFACE)
target_link_libraries(qal_test_flags INTERFACE qal_common_flags)
# -fPIC, because programs share a precompiled header with a library and must be compiled alike.
# Visible, because the linker also wraps calls from shared libraries and must then export the
# replacement.
target_compile_options(qal_test_flags INTERFACE -O0 -g1 -fPIC -fvisibility=default)
# Undefined behaviour is sought in the product alone, which saves a third of the time, and only the
# product's branches guide the fuzzers.
string(REPLACE "," ";" test_sanitizers "${QAL_SANITIZE}")
list(REMOVE_ITEM test_sanitizers undefined integer fuzzer-no-link)
list(TRANSFORM test_sanitizers PREPEND -fsanitize=)
target_compile_options(qal_test_flags INTERFACE ${test_sanitizers})
if(QAL_SANITIZE MATCHES "address|integer" AND CMAKE_CXX_COMPILER_ID MATCHES Clang)
  # Linked into a program, clang's runtime would call what a test puts in the place of malloc.
  execute_process(
    COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
    OUTPUT_VARIABLE clang_dir OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  target_link_options(qal_test_flags INTERFACE -shared-libasan -Wl,-rpath,${clang_dir}/lib/linux)
endif()
