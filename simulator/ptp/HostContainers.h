// What a host sends on the bulk-out endpoint, put together to requests and checked: command
// containers, and the data containers of operations that take one (USB still-image class, PIMA
// 15740 annex D).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "simulator/bytes/Payload.h"
#include "simulator/ptp/PTPMessages.h"
#include "simulator/usb/HostViolations.h"

namespace tarvo::simulator {

/// Not locked: its device calls it under its own lock. What is against the protocol goes to
/// `violations`, and is read as well as it can be.
class HostContainers {
 public:
  explicit HostContainers(HostViolations& violations) : violations_(violations) {}

  /// The request of a command container; none when the bytes are no such container. `ends`: a
  /// short packet ended them.
  std::optional<PTPRequest> command(std::span<const std::byte> bytes, bool ends);
  /// Whether the bytes begin a command container rather than a data container.
  static bool isCommand(std::span<const std::byte> bytes);

  /// From here on bytes are data for the request.
  void expectData() {
    expectsData_ = true;
    forgetData();
  }
  bool expectsData() const { return expectsData_; }
  /// Takes bytes of a data container; true when it is whole, and `request` has its payload then.
  bool data(std::span<const std::byte> bytes, bool ends, PTPRequest& request);

  /// Whether an empty packet is the end of what was received before, and no container of its own:
  /// a host may end an exact multiple of the packet size with one or not, and both are right.
  bool isEndOfLast(std::span<const std::byte> bytes);
  /// After a cancel or a reset.
  void forget() {
    expectsData_ = false;
    mayEndWithEmpty_ = false;
    forgetData();
  }

 private:
  void forgetData();
  void append(std::span<const std::byte> bytes);
  std::uint64_t received() const { return header_.size() + payload_.size(); }
  void checkData(const PTPRequest& request);

  HostViolations& violations_;
  Bytes header_;  ///< of the data container, as far as it has come
  Spool payload_;
  bool expectsData_ = false;
  bool mayEndWithEmpty_ = false;
};

}  // namespace tarvo::simulator
