tarvo_bench(codec_bench codec_bench.cpp LIBRARIES tarvo_codec)
tarvo_bench(text_bench text_bench.cpp LIBRARIES tarvo_codec)

# Without the library of benchmarks, which would choose the number of runs itself.
add_executable(codec_operations codec_operations.cpp)
target_link_libraries(codec_operations PRIVATE tarvo_codec)

# Kept out of the product's dependencies: only this program uses the C++ bindings.
pkg_check_modules(GIOMM REQUIRED IMPORTED_TARGET giomm-2.68)
add_executable(bare_giomm bare_giomm.cpp)
target_link_libraries(bare_giomm PRIVATE PkgConfig::GIOMM)

# The measure for transfers: libusb alone.
pkg_check_modules(BARE_LIBUSB REQUIRED IMPORTED_TARGET libusb-1.0)
add_executable(bare_ptp bare_ptp.cpp)
target_link_libraries(bare_ptp PRIVATE PkgConfig::BARE_LIBUSB)

add_executable(library_ptp library_ptp.cpp)
target_link_libraries(library_ptp PRIVATE tarvo_library_room)

# The measure for the start of a window, and what looks at the window from within.
if(TARVO_WINDOWS)
  add_executable(bare_window bare_window.cpp)
  target_link_libraries(bare_window PRIVATE PkgConfig::GTKMM)
  pkg_check_modules(METER_GOBJECT REQUIRED IMPORTED_TARGET gobject-2.0)
  # The toolkit comes with the program: a meter that brought it along would change the start.
  add_library(window_meter MODULE window_meter.cpp)
  target_include_directories(window_meter SYSTEM PRIVATE ${GTKMM_INCLUDE_DIRS})
  target_link_libraries(window_meter PRIVATE PkgConfig::METER_GOBJECT ${CMAKE_DL_LIBS})
  set_target_properties(window_meter PROPERTIES PREFIX "")
endif()
