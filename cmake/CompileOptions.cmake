# nolk_compile_options has the compile options of all our targets. nolk_any_level is the same without an instruction set,
# for targets that set their own.
add_library(nolk_any_level INTERFACE)
target_compile_features(nolk_any_level INTERFACE cxx_std_17)
# The library starts its own threads, so Eigen must not use OpenMP even if the user's flags enable it.
target_compile_definitions(nolk_any_level INTERFACE EIGEN_DONT_PARALLELIZE)

# Results must be the same to the bit: the compiler may not fuse products and sums (only std::fma does), and integers
# wrap.
target_compile_options(nolk_any_level INTERFACE -ffp-contract=off -fwrapv -Wall -Wextra -Wpedantic -Wshadow)
if(NOLK_WARNINGS_AS_ERRORS)
  target_compile_options(nolk_any_level INTERFACE -Werror)
endif()
if(NOLK_SANITIZE)
  target_compile_options(nolk_any_level INTERFACE -fsanitize=${NOLK_SANITIZE} -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
  target_link_options(nolk_any_level INTERFACE -fsanitize=${NOLK_SANITIZE})
endif()
if(NOLK_BUILD_FUZZERS)
  target_compile_options(nolk_any_level INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(nolk_any_level INTERFACE -fsanitize=fuzzer-no-link)
  target_compile_definitions(nolk_any_level INTERFACE NOLK_FUZZING)
  # Sanitizers see accesses beyond a tensor only if it has a heap block of its own. Without them tensors share memory as
  # they always do, so that results show a tensor that is overwritten too early.
  if(NOLK_SANITIZE)
    target_compile_definitions(nolk_any_level INTERFACE NOLK_SEPARATE_TENSORS)
  endif()
endif()

add_library(nolk_compile_options INTERFACE)
target_link_libraries(nolk_compile_options INTERFACE nolk_any_level)
if(NOLK_IS_X86_64)
  target_compile_options(nolk_compile_options INTERFACE -march=${NOLK_X86_ARCH})
endif()
