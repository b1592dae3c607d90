# What `cmake --install` lays down: the header, the library, and what CMake (nolk::nolk) and pkg-config (nolk) find it by.
# Component runtime is what programs need to run, development what they need to be built, tools the program nolk.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nolk)

install(FILES ${PROJECT_SOURCE_DIR}/include/nolk.h TYPE INCLUDE COMPONENT development)
install(TARGETS nolk EXPORT nolk
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# The library needs no other package at link time, so the exported target is the whole configuration.
install(EXPORT nolk NAMESPACE nolk:: FILE nolk-config.cmake DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nolk-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/nolk-config-version.cmake DESTINATION ${package_dir} COMPONENT development)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libnolk-dev COMPONENT development
  FILES_MATCHING PATTERN *.md PATTERN *.svg)

# The way from the file back to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH up_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/nolk.pc.in ${PROJECT_BINARY_DIR}/nolk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nolk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(NOLK_BUILD_TOOLS)
  install(TARGETS nolk_program COMPONENT tools)
  install(FILES ${PROJECT_BINARY_DIR}/tools/nolk.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_BINARY_DIR}/tools/nolk.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools RENAME nolk)
endif()
