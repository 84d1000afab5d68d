# Language level, warnings and sanitizers, in one place for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 17)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

include(CMakeDependentOption)
option(TARVO_SIMULATOR "Build the virtual devices and their testbed" ON)
# These are played on virtual devices.
cmake_dependent_option(TARVO_TESTS "Build the tests" ON TARVO_SIMULATOR OFF)
cmake_dependent_option(TARVO_BENCH "Build the benchmarks" ON TARVO_SIMULATOR OFF)
cmake_dependent_option(TARVO_FUZZ "Build the fuzz targets (clang only)" OFF TARVO_SIMULATOR OFF)
set(TARVO_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize= (empty for none)")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -Wcast-qual -Wundef)
if(TARVO_SANITIZE)
  add_compile_options(-fsanitize=${TARVO_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC finds the standard library at fault in code that has been instrumented.
    add_compile_options(-Wno-array-bounds -Wno-maybe-uninitialized -Wno-restrict
                        -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
  add_link_options(-fsanitize=${TARVO_SANITIZE})
endif()
if(TARVO_FUZZ)
  # The libraries too: inputs are found by the branches that they take in the readers.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections -Wl,--as-needed)
