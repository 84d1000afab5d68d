# tarvo_room(NAME DIR dependencies...): one static library from the sources that lie in DIR itself.
# A room sees the headers of the whole tree under their path from the root; which of them it may
# include is what its dependencies say, and tests/house checks it.
function(tarvo_room name)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PUBLIC ${ARGN})
endfunction()
