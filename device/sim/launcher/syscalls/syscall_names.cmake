# Writes a row {"NAME", SYS_NAME}, for each system call that the compiler's headers define.
#
# cmake -DCOMPILER=... -DOUTPUT=... -P syscall_names.cmake

execute_process(COMMAND ${COMPILER} -x c++ -dM -E -include sys/syscall.h /dev/null
  OUTPUT_VARIABLE macros COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "#define SYS_[a-z0-9_]+" definitions "${macros}")
list(SORT definitions)
set(rows "")
foreach(definition IN LISTS definitions)
  string(REPLACE "#define SYS_" "" name "${definition}")
  string(APPEND rows "{\"${name}\", SYS_${name}},\n")
endforeach()
if(rows STREQUAL "")
  message(FATAL_ERROR "${COMPILER} defines no system calls in sys/syscall.h")
endif()
file(WRITE "${OUTPUT}" "${rows}")
