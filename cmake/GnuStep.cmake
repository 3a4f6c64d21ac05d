# GNUstep's Foundation as a target.
find_program(GNUSTEP_CONFIG gnustep-config REQUIRED)
function(ask_gnustep what answer)
  execute_process(COMMAND ${GNUSTEP_CONFIG} --${what} OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  set(${answer} ${flags} PARENT_SCOPE)
endfunction()

# Warnings, optimisation and dependency files are this project's own business.
ask_gnustep(objc-flags flags)
set(include_dirs ${flags})
list(FILTER include_dirs INCLUDE REGEX "^-I/usr/")
list(TRANSFORM include_dirs REPLACE "^-I" "")
list(FILTER flags EXCLUDE REGEX "^-(I|W|O|M|g$)")
ask_gnustep(base-libs libraries)

add_library(qal_gnustep INTERFACE)
target_compile_options(qal_gnustep INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:${flags}>)
target_include_directories(qal_gnustep SYSTEM INTERFACE ${include_dirs})
target_link_libraries(qal_gnustep INTERFACE ${libraries})
