// A device of the simulator behind the transport's narrow seam, in the process of the test.
//
//   auto camera = simulatedCamera(R"({"usb": {"vendor": "0xF055", "product": "0x0302"},
//                                     "deviceInfo": {"model": "Lumo"}})");
//   BulkConnection connection(std::make_unique<SimulatedUSBDevice>(camera), ...);
//
// A test in which the host breaks the protocol fails when the camera goes.
// Time does not pass: waiting for what the device does not send ends at once, as a time-out.
#pragma once

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/imagecapture/ptp/BulkConnection.h"
#include "simulator/ptp/PTPCamera.h"

namespace tarvo::test {

/// A camera from its description. Where the host has broken the protocol, the test fails when the
/// camera goes; a test that breaks it on purpose looks at violations() and then forgets them.
inline std::shared_ptr<simulator::PTPCamera> simulatedCamera(
    const simulator::DeviceDescription& description) {
  return {new simulator::PTPCamera(description), [](simulator::PTPCamera* camera) {
            for (const auto& violation : camera->violations())
              ADD_FAILURE() << "the host broke the protocol: " << violation;
            delete camera;
          }};
}

/// The same from the JSON of a description; raises DescriptionError.
inline std::shared_ptr<simulator::PTPCamera> simulatedCamera(const std::string& json) {
  return simulatedCamera(simulator::DeviceDescription::fromJson(nlohmann::json::parse(json)));
}

class SimulatedUSBDevice : public ptp::USBDevice {
 public:
  explicit SimulatedUSBDevice(std::shared_ptr<simulator::PTPCamera> camera)
      : camera_(std::move(camera)) {
    using simulator::PTPCamera;
    endpoints_.bulkIn = PTPCamera::kBulkIn;
    endpoints_.bulkOut = PTPCamera::kBulkOut;
    endpoints_.interruptIn = PTPCamera::kInterruptIn;
    const auto packet = camera_->descriptors().endpoint(PTPCamera::kBulkIn)->packetSize;
    endpoints_.bulkInPacketSize = endpoints_.bulkOutPacketSize = packet;
    endpoints_.interruptPacketSize = 64;
  }

  SimulatedUSBDevice(const SimulatedUSBDevice&) = delete;
  SimulatedUSBDevice& operator=(const SimulatedUSBDevice&) = delete;
  ~SimulatedUSBDevice() override { SimulatedUSBDevice::watchInterrupts(nullptr); }

  const ptp::StillImageEndpoints& endpoints() const override { return endpoints_; }

  ptp::TransferCompletion control(const ptp::ControlSetup& setup, std::span<std::byte> data,
                                  std::chrono::milliseconds) override {
    if (camera_->isGone()) return {0, ptp::TransferResult::kNoDevice, 0};
    if (camera_->isDeaf()) return {0, ptp::TransferResult::kTimedOut, 0};
    const simulator::SetupPacket packet = {setup.requestType, setup.request, setup.value,
                                           setup.index, static_cast<std::uint16_t>(data.size())};
    const auto answer =
        camera_->control(packet, packet.fromDevice() ? std::span<std::byte>() : data);
    if (!answer) return {0, ptp::TransferResult::kStalled, 0};
    if (!packet.fromDevice()) return {0, ptp::TransferResult::kCompleted, data.size()};
    std::copy(answer->begin(), answer->end(), data.begin());
    return {0, ptp::TransferResult::kCompleted, answer->size()};
  }

  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override {
    if ((endpoint & 0x80) != 0) {
      waiting_.push_back({endpoint, buffer, tag, 0});
      return;
    }
    const bool ends = buffer.empty() || buffer.size() % endpoints_.bulkOutPacketSize != 0;
    const auto result = camera_->out(endpoint, buffer, ends);
    const bool accepted = result == simulator::OutResult::kAccepted;
    ended_.push_back({tag,
                      accepted                                   ? ptp::TransferResult::kCompleted
                      : result == simulator::OutResult::kStalled ? ptp::TransferResult::kStalled
                                                                 : ptp::TransferResult::kNoDevice,
                      accepted ? buffer.size() : 0});
  }

  std::optional<ptp::TransferCompletion> wait(std::chrono::milliseconds) override {
    progress();
    if (ended_.empty()) return std::nullopt;
    const auto completion = ended_.front();
    ended_.pop_front();
    return completion;
  }

  void cancelAll() override {
    for (const Waiting& transfer : waiting_)
      ended_.push_back({transfer.tag, ptp::TransferResult::kCancelled, transfer.filled});
    waiting_.clear();
  }

  ptp::TransferResult clearHalt(std::uint8_t endpoint) override {
    if (camera_->isGone()) return ptp::TransferResult::kNoDevice;
    camera_->clearHalt(endpoint);
    return ptp::TransferResult::kCompleted;
  }

  ptp::TransferResult resetPort() override {
    if (camera_->isGone()) return ptp::TransferResult::kNoDevice;
    camera_->reset();
    return ptp::TransferResult::kCompleted;
  }

  /// The main context looks every millisecond: the simulator calls nobody.
  void watchInterrupts(ptp::InterruptHandler handler) override {
    if (looking_ != 0) g_source_remove(std::exchange(looking_, 0));
    interrupts_ = std::move(handler);
    if (interrupts_) looking_ = g_timeout_add(1, look, this);
  }

 private:
  struct Waiting {
    std::uint8_t endpoint;
    std::span<std::byte> room;
    std::uint64_t tag;
    std::size_t filled;
  };

  static gboolean look(gpointer device) {
    auto& self = *static_cast<SimulatedUSBDevice*>(device);
    std::vector<std::byte> packet(self.endpoints_.interruptPacketSize);
    const auto sent = self.camera_->in(self.endpoints_.interruptIn, packet);
    const auto handler = self.interrupts_;
    if (sent.state == simulator::InResult::State::kWaiting) return G_SOURCE_CONTINUE;
    const auto result = resultOf(sent.state);
    if (result != ptp::TransferResult::kCompleted) self.looking_ = 0;
    handler(result, std::span(packet).first(sent.length));
    return result == ptp::TransferResult::kCompleted;
  }

  static ptp::TransferResult resultOf(simulator::InResult::State state) {
    using State = simulator::InResult::State;
    using ptp::TransferResult;
    return state == State::kStalled    ? TransferResult::kStalled
           : state == State::kOverflow ? TransferResult::kOverflow
           : state == State::kGone     ? TransferResult::kNoDevice
                                       : TransferResult::kCompleted;
  }

  /// Lets the device fill what waits, in order, until it has nothing more for it.
  void progress() {
    while (!waiting_.empty()) {
      auto& transfer = waiting_.front();
      const auto result = camera_->in(transfer.endpoint, transfer.room.subspan(transfer.filled));
      transfer.filled += result.length;
      if (result.state == simulator::InResult::State::kWaiting) return;
      ended_.push_back({transfer.tag, resultOf(result.state), transfer.filled});
      waiting_.pop_front();
    }
  }

  std::shared_ptr<simulator::PTPCamera> camera_;
  ptp::StillImageEndpoints endpoints_;
  std::deque<Waiting> waiting_;
  std::deque<ptp::TransferCompletion> ended_;
  ptp::InterruptHandler interrupts_;
  guint looking_ = 0;  ///< the source that looks for events
};

/// Connects to one simulated camera, whatever the address.
class SimulatedConnector : public ptp::PTPConnector {
 public:
  explicit SimulatedConnector(std::shared_ptr<simulator::PTPCamera> simulated)
      : camera(std::move(simulated)) {}

  std::unique_ptr<ptp::PTPConnection> connect(const ptp::USBInterfaceAddress&, Status* failure,
                                              std::string* why) override {
    if (!camera->isGone()) {
      std::unique_ptr<ptp::USBDevice> device = std::make_unique<SimulatedUSBDevice>(camera);
      if (wrap) device = wrap(std::move(device));
      return std::make_unique<ptp::BulkConnection>(std::move(device), timeouts, LogSink(),
                                                   "simulated camera");
    }
    if (failure) *failure = status::kICADeviceGone;
    if (why) *why = "it is unplugged";
    return nullptr;
  }

  std::shared_ptr<simulator::PTPCamera> camera;  ///< of the next connection
  ptp::Timeouts timeouts;
  /// Where there is one, puts something between the transport and the camera, or in its place.
  std::function<std::unique_ptr<ptp::USBDevice>(std::unique_ptr<ptp::USBDevice>)> wrap;
};

}  // namespace tarvo::test
