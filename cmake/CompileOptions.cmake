# nolk_compile_options: what every target of ours is compiled with. nolk_any_level is that without an instruction set, for
# targets that name their own.
add_library(nolk_any_level INTERFACE)
target_compile_features(nolk_any_level INTERFACE cxx_std_17)
# Threads are the library's own affair, also where a user's flags switch OpenMP on.
target_compile_definitions(nolk_any_level INTERFACE EIGEN_DONT_PARALLELIZE)

# Results are fixed to the bit: a product and a sum are fused only where std::fma says so, and integers wrap.
target_compile_options(nolk_any_level INTERFACE -ffp-contract=off -fwrapv -Wall -Wextra -Wpedantic -Wshadow)
if(NOLK_WARNINGS_AS_ERRORS)
  target_compile_options(nolk_any_level INTERFACE -Werror)
endif()
if(NOLK_SANITIZE)
  target_compile_options(nolk_any_level INTERFACE -fsanitize=${NOLK_SANITIZE} -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
  target_link_options(nolk_any_level INTERFACE -fsanitize=${NOLK_SANITIZE})
endif()

add_library(nolk_compile_options INTERFACE)
target_link_libraries(nolk_compile_options INTERFACE nolk_any_level)
if(NOLK_IS_X86_64)
  target_compile_options(nolk_compile_options INTERFACE -march=${NOLK_X86_ARCH})
endif()
