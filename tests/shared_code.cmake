# Holds that the objects which are compiled for a level of x86-64 of their own use its registers, and share no code by name
# with other objects, of which the linker would keep one copy for all. BASELINE are the objects that run on every
# processor. LEVELS are the objects of the matrix products and of the fast back end's kernels, those of one level in one
# entry; REGISTERS are the widest that each entry uses. REST are all others. With ONLY_BASELINE_STARTS no object but
# BASELINE may have code that runs when a library is loaded; sanitizers add such code to every object, and Eigen has some
# that only an optimised build leaves out.
#   cmake -DNM=nm -DOBJDUMP=objdump "-DBASELINE=x.o,y.o" "-DLEVELS=v2.o,v3.o+more_v3.o,v4.o" "-DREGISTERS=%xmm,%ymm,%zmm"
#         "-DREST=a.o,b.o" [-DONLY_BASELINE_STARTS=1] -P shared_code.cmake
cmake_minimum_required(VERSION 3.22)

# `entry` is an object, or several with a plus between them.
function(symbols_of entry result)
  string(REPLACE "+" ";" objects ${entry})
  execute_process(COMMAND ${NM} -A --defined-only --extern-only ${objects} OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^ \n]+\n" symbols "${listing}")
  list(TRANSFORM symbols STRIP)
  # A pointer to the handler of exceptions, the same in all.
  list(REMOVE_ITEM symbols DW.ref.__gxx_personality_v0)
  if(NOT symbols)
    message(FATAL_ERROR "no symbols in ${entry}")
  endif()
  set(${result} ${symbols} PARENT_SCOPE)
endfunction()

string(REPLACE "," ";" baseline "${BASELINE}")
string(REPLACE "," ";" levels "${LEVELS}")
string(REPLACE "," ";" registers_of_levels "${REGISTERS}")
string(REPLACE "," ";" rest "${REST}")
set(seen "")
foreach(object ${rest})
  symbols_of(${object} symbols)
  list(APPEND seen ${symbols})
endforeach()
foreach(object ${baseline} ${levels})
  symbols_of(${object} symbols)
  foreach(symbol ${symbols})
    if(symbol IN_LIST seen)
      message(FATAL_ERROR "${symbol} is in ${object}, and elsewhere")
    endif()
  endforeach()
  list(APPEND seen ${symbols})
endforeach()

if(ONLY_BASELINE_STARTS)
  string(REPLACE "+" ";" objects_of_levels "${levels}")
  foreach(object ${objects_of_levels} ${rest})
    execute_process(COMMAND ${OBJDUMP} -h ${object} OUTPUT_VARIABLE sections COMMAND_ERROR_IS_FATAL ANY)
    if(sections MATCHES " \\.(init_array|ctors)")
      message(FATAL_ERROR "${object} has code that runs when the library is loaded")
    endif()
  endforeach()
endif()

foreach(object ${baseline})
  execute_process(COMMAND ${OBJDUMP} -d ${object} OUTPUT_VARIABLE code COMMAND_ERROR_IS_FATAL ANY)
  if(code MATCHES "%[yz]mm|\tv[a-z]+")
    message(FATAL_ERROR "${CMAKE_MATCH_0} in ${object}")
  endif()
endforeach()
foreach(level used IN ZIP_LISTS levels registers_of_levels)
  string(REPLACE "+" ";" objects ${level})
  execute_process(COMMAND ${OBJDUMP} -d ${objects} OUTPUT_VARIABLE code COMMAND_ERROR_IS_FATAL ANY)
  foreach(registers %xmm %ymm %zmm)
    string(FIND "${code}" ${registers} at)
    if(registers STREQUAL used AND at EQUAL -1)
      message(FATAL_ERROR "no ${used} in ${level}")
    elseif(registers STRGREATER used AND NOT at EQUAL -1)
      message(FATAL_ERROR "${registers} in ${level}")
    endif()
  endforeach()
endforeach()
