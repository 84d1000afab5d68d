# Much of the time of a compilation goes into a few large headers that nearly every file has.
# Presets for development read them once: one set for libraries and one for tests, since it belongs
# to the compiler's options. Every other build, and the tools of clang, see each file with nothing
# but its own includes.
option(TARVO_PRECOMPILED "Read the largest headers once" OFF)

if(TARVO_PRECOMPILED)
  if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache")
    add_compile_options("$<IF:$<CXX_COMPILER_ID:GNU>,-fpch-preprocess,SHELL:-Xclang -fno-pch-timestamp>")
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros
        ${CMAKE_CXX_COMPILER_LAUNCHER})
  endif()
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/precompiled.cpp" CONTENT "")
  set(headers <algorithm> <filesystem> <functional> <map> <memory> <optional> <string> <vector>
              <nlohmann/json.hpp>)
  add_library(tarvo_precompiled OBJECT "${PROJECT_BINARY_DIR}/precompiled.cpp")
  target_precompile_headers(tarvo_precompiled PRIVATE ${headers})
  target_compile_options(tarvo_precompiled PRIVATE -pthread)
  if(TARVO_TESTS)
    add_executable(tarvo_precompiled_tests "${PROJECT_BINARY_DIR}/precompiled.cpp")
    target_precompile_headers(tarvo_precompiled_tests PRIVATE ${headers} <gmock/gmock.h>)
    target_compile_options(tarvo_precompiled_tests PRIVATE -pthread)
    target_link_libraries(tarvo_precompiled_tests PRIVATE GTest::gmock_main)
  endif()
endif()

# tarvo_use_precompiled(TARGET SET): the target's files start with that set, where there is one.
function(tarvo_use_precompiled target set)
  if(TARGET ${set})
    target_compile_options(${target} PRIVATE -pthread)
    target_precompile_headers(${target} REUSE_FROM ${set})
  endif()
endfunction()
