# What `cmake --install` installs: headers, libraries, and files by which CMake (nolk::nolk, nolk::model) and pkg-config
# (nolk, nolk_model) find them. Programs need the components runtime and model_runtime to run, and development and
# model_development to be built. The component tools is the program nolk.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nolk)

install(FILES ${PROJECT_SOURCE_DIR}/include/nolk.h ${PROJECT_SOURCE_DIR}/include/nolk_layers.h
  TYPE INCLUDE COMPONENT development)
install(TARGETS nolk EXPORT nolk
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(EXPORT nolk NAMESPACE nolk:: FILE nolk-targets.cmake DESTINATION ${package_dir} COMPONENT development)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/nolk-config.cmake DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nolk-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/nolk-config-version.cmake DESTINATION ${package_dir} COMPONENT development)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libnolk-dev COMPONENT development
  FILES_MATCHING PATTERN *.md PATTERN *.svg)

# The relative path from the .pc file to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH up_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/nolk.pc.in ${PROJECT_BINARY_DIR}/nolk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nolk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(TARGET nolk_model)
  install(FILES ${PROJECT_SOURCE_DIR}/include/nolk_model.h TYPE INCLUDE COMPONENT model_development)
  install(TARGETS nolk_model EXPORT nolk_model
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT model_runtime NAMELINK_COMPONENT model_development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT model_development)
  install(EXPORT nolk_model NAMESPACE nolk:: FILE nolk-model-targets.cmake
    DESTINATION ${package_dir} COMPONENT model_development)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/nolk_model.pc.in ${PROJECT_BINARY_DIR}/nolk_model.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/nolk_model.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT model_development)
endif()

if(NOLK_BUILD_TOOLS)
  install(TARGETS nolk_program COMPONENT tools)
  install(FILES ${PROJECT_BINARY_DIR}/tools/nolk.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_BINARY_DIR}/tools/nolk.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools RENAME nolk)
endif()

if(TARGET nolk_convert)
  install(TARGETS nolk_convert COMPONENT convert)
  install(FILES ${PROJECT_BINARY_DIR}/tools/convert/nolk-convert.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT convert)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/converting.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/nolk-convert COMPONENT convert)
endif()
