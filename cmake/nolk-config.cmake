# find_package(nolk) reads this file. It defines nolk::nolk, and nolk::model if that library is installed.
include(${CMAKE_CURRENT_LIST_DIR}/nolk-targets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/nolk-model-targets.cmake OPTIONAL)
