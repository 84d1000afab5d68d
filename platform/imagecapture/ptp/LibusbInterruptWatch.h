// The interrupt endpoint of a device on libusb: one read kept in flight, and what it brings handed
// over from the main loop.
#pragma once

#include <libusb.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "platform/foundation/GlibPtr.h"
#include "platform/imagecapture/ptp/LibusbDevice.h"
#include "platform/imagecapture/ptp/USBDevice.h"

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

/// Main thread only.
///
/// A read may end while a call of the device waits for its own transfers: its packet then lies here
/// until the main loop's next turn. A device that sends more than kMostWaiting packets in between
/// is not read from before those have been handed over, so that it cannot fill the memory.
class LibusbInterruptWatch {
 public:
  static constexpr std::size_t kMostWaiting = 64;

  /// Starts reading. `handle` is lent; `endpoints` has an interrupt endpoint. The handler may
  /// destroy this object.
  LibusbInterruptWatch(LibusbHandle& handle, const StillImageEndpoints& endpoints,
                       InterruptHandler handler);
  LibusbInterruptWatch(const LibusbInterruptWatch&) = delete;
  LibusbInterruptWatch& operator=(const LibusbInterruptWatch&) = delete;
  /// No read may be in flight any more.
  ~LibusbInterruptWatch();

  /// The handler is not called any more, and the read in flight ends soon: libusb's events are to
  /// be handled until isInFlight() is false.
  void cancel();
  bool isInFlight() const { return inFlight_; }
  const InterruptHandler& handler() const { return receiver_->handler; }

 private:
  struct Packet {
    TransferResult result;
    std::vector<std::byte> bytes;
  };
  /// Outlives this object where a handler destroys it.
  struct Receiver {
    InterruptHandler handler;
    bool isCancelled = false;
  };

  static void LIBUSB_CALL readEnded(libusb_transfer* transfer) noexcept;
  void take(TransferResult result);
  void startReading();
  /// From the main loop: lets libusb finish what has ended, and hands it over.
  void serve();

  LibusbHandle& handle_;
  StillImageEndpoints endpoints_;
  std::vector<unsigned char> buffer_;  ///< one packet
  LibusbTransfer transfer_;
  bool inFlight_ = false;
  bool isHalted_ = false;
  int haltsInARow_ = 0;
  std::deque<Packet> waiting_;
  std::shared_ptr<Receiver> receiver_;
  std::optional<LibusbEventSource> source_;  ///< until the endpoint fails
};

}  // namespace tarvo::ptp
