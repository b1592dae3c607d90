# Debian packages, by `cpack`: libnolk1 (what programs need to run), libnolk-dev (what they need to be built), the same
# two for libnolk_model, nolk and nolk-convert (the programs).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "nolk developers <developers@nolk.invalid>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(NOLK_IS_X86_64)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
  set(needs_level "\nThis build needs a processor of the level ${NOLK_X86_ARCH}.")
endif()

# The dependency of packages that link our libraries: at least the version that they were built with.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
find_program(DPKG_SHLIBDEPS NAMES dpkg-shlibdeps)
if(DPKG_SHLIBDEPS AND NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/inspect)
else()
  # Without dpkg-shlibdeps, or in a cross build, for which it does not work, the dependencies are listed here: the oldest
  # versions that have all symbols which Debian 12's compiler uses.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 11)")
endif()

file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog latest LIMIT_COUNT 1)
if(NOT latest MATCHES "^nolk \\(${debian_version}\\)")
  message(FATAL_ERROR "cmake/debian/changelog does not begin with version ${debian_version}")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog)
find_program(GZIP NAMES gzip REQUIRED)
execute_process(COMMAND ${GZIP} -n9c ${CMAKE_CURRENT_LIST_DIR}/debian/changelog
  OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)

# nolk_package(component package section description) defines the package of an install component. It also contains
# changelog and copyright.
macro(nolk_package component package section description)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
  if("${section}" STREQUAL "libs")
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
  endif()
  # For packages only, not for `cmake --install`.
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

nolk_package(runtime libnolk${PROJECT_VERSION_MAJOR} libs
  "The library: it runs trained networks, from model files or recorded\noperation by operation.${needs_level}")

nolk_package(development libnolk-dev libdevel
  "For development: the header, the documents, and what CMake and\npkg-config find the library by.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libnolk${PROJECT_VERSION_MAJOR} (= ${debian_version})")

# The packages of one build depend on each other's exact version.
if(CPACK_DEBIAN_PACKAGE_DEPENDS)
  set(and_libraries ", ${CPACK_DEBIAN_PACKAGE_DEPENDS}")
endif()
if(TARGET nolk_model)
  nolk_package(model_runtime libnolk-model${PROJECT_VERSION_MAJOR} libs
    "The companion library: it looks into model files, checks them and\nwrites them.${needs_level}")
  nolk_package(model_development libnolk-model-dev libdevel
    "For development with the companion library: its header, and what CMake\nand pkg-config find it by.")
  set(CPACK_DEBIAN_MODEL_RUNTIME_PACKAGE_DEPENDS
    "libnolk${PROJECT_VERSION_MAJOR} (= ${debian_version})${and_libraries}")
  set(CPACK_DEBIAN_MODEL_DEVELOPMENT_PACKAGE_DEPENDS
    "libnolk-model${PROJECT_VERSION_MAJOR} (= ${debian_version}), libnolk-dev (= ${debian_version})")
endif()

if(NOLK_BUILD_TOOLS)
  nolk_package(tools nolk utils
    "The program: it looks into model files, runs them, times them, and says\nwhat is wrong with them.${needs_level}")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "libnolk-model${PROJECT_VERSION_MAJOR} (= ${debian_version}), libnolk${PROJECT_VERSION_MAJOR} (= ${debian_version})${and_libraries}")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "graphviz, nolk-convert")
endif()

if(TARGET nolk_convert)
  nolk_package(convert nolk-convert utils
    "The converter: it makes model files of ONNX files, and says what stands\nin the way where it cannot.${needs_level}")
  set(CPACK_DEBIAN_CONVERT_PACKAGE_SUGGESTS nolk)
  set(CPACK_DEBIAN_CONVERT_PACKAGE_DEPENDS
    "libnolk-model${PROJECT_VERSION_MAJOR} (= ${debian_version}), libnolk${PROJECT_VERSION_MAJOR} (= ${debian_version})${and_libraries}")
endif()

include(CPack)
