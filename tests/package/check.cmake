# Installs nolk into a scratch prefix and builds the README's code against that alone, found by CMake and by pkg-config.
# WITH_FAST: the fast back end belongs to it. With CPACK it is the Debian packages that are made and unpacked there.
#   cmake -DBUILD=<build tree> -DSCRATCH=<folder> -DREADME=<file> -DMODEL=<file> -DCXX=<compiler> -DPKG_CONFIG=<program>
#         -DGENERATOR=<of CMake> [-DSANITIZE=<sanitizers of the library>] [-DEMULATOR=<that runs its programs>]
#         [-DWITH_FAST=1] [-DCPACK=<program>] -P check.cmake
function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# A sanitized library wants a host with the same sanitizer.
set(flags -Wall -Wextra -Werror)
if(SANITIZE)
  list(APPEND flags -fsanitize=${SANITIZE})
endif()
list(JOIN flags " " flags_text)
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")

file(REMOVE_RECURSE ${SCRATCH})
if(CPACK)
  run(${CPACK} --config ${BUILD}/CPackConfig.cmake -B ${SCRATCH}/packages)
  file(GLOB packages ${SCRATCH}/packages/*.deb)
  foreach(package ${packages})
    run(dpkg-deb --extract ${package} ${SCRATCH}/unpacked)
  endforeach()
  set(prefix ${SCRATCH}/unpacked/usr)
else()
  set(prefix ${SCRATCH}/prefix)
  run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
endif()
file(READ ${README} readme)
if(NOT readme MATCHES "```cpp\n([^`]+)```")
  message(FATAL_ERROR "no C++ in ${README}")
endif()
file(WRITE ${SCRATCH}/main.cpp "${CMAKE_MATCH_1}")

run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${SCRATCH}/build -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${flags_text} -DSOURCE=${SCRATCH}/main.cpp
    -DWITH_FAST=${WITH_FAST})
run(${CMAKE_COMMAND} --build ${SCRATCH}/build)
run(${emulator} ${SCRATCH}/build/host ${MODEL})
if(WITH_FAST)
  run(${emulator} ${SCRATCH}/build/fast_host ${MODEL} ${prefix})
endif()
if(EXISTS ${SCRATCH}/build/model_host)
  run(${emulator} ${SCRATCH}/build/model_host)
endif()

file(GLOB_RECURSE pc ${prefix}/nolk.pc)
cmake_path(GET pc PARENT_PATH pc_folder)
set(ENV{PKG_CONFIG_PATH} ${pc_folder})
execute_process(COMMAND ${PKG_CONFIG} --variable=libdir nolk OUTPUT_VARIABLE libdir OUTPUT_STRIP_TRAILING_WHITESPACE)
file(GLOB static_library ${libdir}/libnolk.a)
if(static_library)
  set(with_private_libraries --static)
endif()
execute_process(COMMAND ${PKG_CONFIG} ${with_private_libraries} --cflags --libs nolk
  OUTPUT_VARIABLE options COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(options UNIX_COMMAND "${options}")
# C++14 is what the header asks of a host.
run(${CXX} -std=c++14 ${flags} ${SCRATCH}/main.cpp ${options} -Wl,-rpath,${libdir} -o ${SCRATCH}/host)
run(${emulator} ${SCRATCH}/host ${MODEL})
if(EXISTS ${pc_folder}/nolk_model.pc)
  execute_process(COMMAND ${PKG_CONFIG} ${with_private_libraries} --cflags --libs nolk_model
    OUTPUT_VARIABLE options COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(options UNIX_COMMAND "${options}")
  run(${CXX} -std=c++17 ${flags} ${CMAKE_CURRENT_LIST_DIR}/model_host.cpp ${options} -Wl,-rpath,${libdir}
      -o ${SCRATCH}/model_host)
  run(${emulator} ${SCRATCH}/model_host)
endif()

# The program's package depends on the library's, as far as dpkg knows the processor.
find_program(dpkg_shlibdeps dpkg-shlibdeps)
if(CPACK AND dpkg_shlibdeps AND NOT EMULATOR)
  file(GLOB library_package ${SCRATCH}/packages/libnolk1_*.deb)
  file(WRITE ${SCRATCH}/dependent/debian/control "Source: host\n\nPackage: host\nArchitecture: any\n")
  run(dpkg-deb --raw-extract ${library_package} ${SCRATCH}/dependent/libnolk1)
  execute_process(COMMAND ${dpkg_shlibdeps} -Slibnolk1 -O ${SCRATCH}/build/host
    WORKING_DIRECTORY ${SCRATCH}/dependent OUTPUT_VARIABLE dependencies COMMAND_ERROR_IS_FATAL ANY)
  if(NOT dependencies MATCHES "libnolk1 \\(>= [0-9]")
    message(FATAL_ERROR "a program that links libnolk.so depends on ${dependencies}")
  endif()
endif()

# As a part of another project nolk installs nothing of its own accord: nothing is built here that could be installed.
if(NOT CPACK)
  run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${SCRATCH}/subproject -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
      -DNOLK_FOLDER=${CMAKE_CURRENT_LIST_DIR}/../.. -DSOURCE=${SCRATCH}/main.cpp)
  run(${CMAKE_COMMAND} --install ${SCRATCH}/subproject --prefix ${SCRATCH}/subproject/prefix)
endif()
