#include "platform/imagecapture/ptp/EventWatch.h"

#include <utility>

#include "Utilities/Format.h"
#include "platform/foundation/MainLoopGuard.h"

namespace tarvo::ptp {

struct EventWatch::State {
  std::function<void(const Event&)> handler;
  LogSink log;
  std::string name;
  EventAssembler assembler;
  bool isOver = false;

  void take(TransferResult result, std::span<const std::byte> packet) {
    if (result != TransferResult::kCompleted) {
      logTo(log, LogLevel::kDebug, formatted("PTP: no more events of %s", name.c_str()));
      return;
    }
    for (const Event& event : assembler.take(packet)) {
      if (isOver) return;
      guardedEntry(log, "PTP event", [&] { handler(event); });
    }
  }
};

EventWatch::EventWatch(USBDevice& device, std::function<void(const Event&)> handler, LogSink log,
                       std::string name)
    : device_(device),
      state_(
          std::make_shared<State>(State{std::move(handler), std::move(log), std::move(name),
                                        EventAssembler(device.endpoints().interruptPacketSize)})) {
  device_.watchInterrupts(
      [state = state_](TransferResult result, std::span<const std::byte> packet) {
        state->take(result, packet);
      });
}

EventWatch::~EventWatch() {
  state_->isOver = true;
  device_.watchInterrupts(nullptr);
}

}  // namespace tarvo::ptp
