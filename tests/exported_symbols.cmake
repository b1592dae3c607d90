# Holds that the library exports the seven entry points and nothing else:
#   cmake -DNM=nm -DLIBRARY=libnolk.so -P exported_symbols.cmake
set(expected
  nolk_new_model_reader nolk_new_runner nolk_new_runner_builder nolk_pop_error_message nolk_push_error_message
  nolk_version nolk_wrap_batch_runner)

execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARY} OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "\n$" "" listing "${listing}")
string(REPLACE "\n" ";" lines "${listing}")
list(TRANSFORM lines REPLACE "^[0-9a-f]+ . " "")
list(SORT lines)
if(NOT lines STREQUAL expected)
  message(FATAL_ERROR "exported: ${lines}\nexpected: ${expected}")
endif()
