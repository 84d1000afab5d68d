// A libusb context as a source of the main loop: no thread, no timer, no wake-up while nothing
// happens on the bus.
#pragma once

#include <libusb.h>

#include <functional>
#include <map>

#include "platform/foundation/GlibPtr.h"

namespace tarvo::ptp {

/// Main thread only; attached to the default main context while it lives.
///
/// It polls the context's descriptors as libusb names them (libusb, "Polling and timing"). No
/// transfer may have a time-out of libusb's own, for which the loop would have to be woken.
class LibusbEventSource {
 public:
  /// `ready` is called when libusb has something to handle, or after wake(). It may destroy the
  /// source, and raises nothing. `context` is lent, and has one such source at a time.
  LibusbEventSource(libusb_context* context, std::function<void()> ready);
  LibusbEventSource(const LibusbEventSource&) = delete;
  LibusbEventSource& operator=(const LibusbEventSource&) = delete;
  ~LibusbEventSource();

  /// Calls `ready` on the loop's next turn.
  void wake();

 private:
  static void LIBUSB_CALL descriptorCame(int descriptor, short events, void* self) noexcept;
  static void LIBUSB_CALL descriptorWent(int descriptor, void* self) noexcept;
  static gboolean dispatch(GSource* source, GSourceFunc callback, gpointer self) noexcept;

  libusb_context* context_;
  std::function<void()> ready_;
  GSource* raw_;           ///< of `source_`
  AttachedSource source_;  ///< gone from the loop with this object
  std::map<int, gpointer> tags_;
};

}  // namespace tarvo::ptp
