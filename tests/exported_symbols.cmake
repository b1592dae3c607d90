# Holds that a library exports what is expected, in alphabetical order, and nothing else:
#   cmake -DNM=nm -DLIBRARY=libnolk.so "-DEXPECTED=nolk_new_runner;nolk_version" -P exported_symbols.cmake
execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARY} OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "\n$" "" listing "${listing}")
string(REPLACE "\n" ";" lines "${listing}")
list(TRANSFORM lines REPLACE "^[0-9a-f]+ . " "")
list(SORT lines)
if(NOT lines STREQUAL EXPECTED)
  message(FATAL_ERROR "exported: ${lines}\nexpected: ${EXPECTED}")
endif()
