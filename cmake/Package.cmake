# Debian packages, by `cpack`: libnolk1 (what programs need to run), libnolk-dev (what they need to be built) and nolk
# (the program).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "nolk developers <developers@nolk.invalid>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_COMPONENTS_ALL runtime development)
if(NOLK_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(NOLK_IS_X86_64)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
  set(needs_level "\n This build needs a processor of the level ${NOLK_X86_ARCH}.")
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libnolk${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
find_program(DPKG_SHLIBDEPS NAMES dpkg-shlibdeps)
if(DPKG_SHLIBDEPS AND NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
else()
  # The oldest that have all symbols which Debian 12's compiler uses; dpkg knows no other processor's packages.
  set(needs_libraries "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 11)")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${needs_libraries})
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${needs_libraries})
endif()
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "The library: it runs trained networks, from model files or recorded operation by operation.${needs_level}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libnolk-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "For development: the header, and what CMake and pkg-config find the library by.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME nolk)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS graphviz)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "The program: it looks into model files, runs them, times them, and says what is wrong with them.${needs_level}")

include(CPack)
