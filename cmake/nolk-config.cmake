# What find_package(nolk) reads: nolk::nolk, and nolk::model where the companion library is installed.
include(${CMAKE_CURRENT_LIST_DIR}/nolk-targets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/nolk-model-targets.cmake OPTIONAL)
