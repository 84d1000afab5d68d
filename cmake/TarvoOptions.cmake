# Language level, warnings and sanitizers, in one place for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 17)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# The shared library shows what its public headers mark, and nothing of the rooms below.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

include(CMakeDependentOption)
option(TARVO_WINDOWS "Build the applications with windows" ON)
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

# What a mistake in reading the bytes of a stranger's device would have to get past; a compiler for
# another processor may know only some of it.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
foreach(flag IN ITEMS stack-protector-strong stack-clash-protection cf-protection)
  check_cxx_compiler_flag(-f${flag} TARVO_HAS_${flag})
  if(TARVO_HAS_${flag})
    add_compile_options(-f${flag})
  endif()
endforeach()
add_compile_options(-Werror=format-security)
set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
add_compile_options("$<${optimised}:-U_FORTIFY_SOURCE>" "$<${optimised}:-D_FORTIFY_SOURCE=3>")
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_link_options(-Wl,-z,relro,-z,now)

if(TARVO_FUZZ)
  # The libraries too: inputs are found by the branches that they take in the readers.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections -Wl,--as-needed)
