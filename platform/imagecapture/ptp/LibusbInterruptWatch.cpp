#include "platform/imagecapture/ptp/LibusbInterruptWatch.h"

#include <poll.h>

#include <algorithm>
#include <span>
#include <utility>

#include "platform/imagecapture/ptp/LibusbDevice.h"

namespace tarvo::ptp {
namespace {

/// A device that halts its endpoint again and again has no events for anybody.
constexpr int kMostHaltsInARow = 3;

}  // namespace

LibusbInterruptWatch::LibusbInterruptWatch(LibusbHandle& handle,
                                           const StillImageEndpoints& endpoints,
                                           InterruptHandler handler)
    : handle_(handle),
      endpoints_(endpoints),
      // A packet at a time: the end of a larger read would not be told before the next event.
      buffer_(endpoints.interruptPacketSize),
      transfer_(libusb_alloc_transfer(0)),
      receiver_(std::make_shared<Receiver>(Receiver{std::move(handler)})) {
  source_.emplace(handle.context.get(), [this] { serve(); });
  startReading();
}

LibusbInterruptWatch::~LibusbInterruptWatch() {
  receiver_->isCancelled = true;
}

void LibusbInterruptWatch::cancel() {
  receiver_->isCancelled = true;
  if (inFlight_) libusb_cancel_transfer(transfer_.get());
}

void LIBUSB_CALL LibusbInterruptWatch::readEnded(libusb_transfer* transfer) noexcept {
  auto& watch = *static_cast<LibusbInterruptWatch*>(transfer->user_data);
  watch.inFlight_ = false;
  watch.take(resultOf(transfer->status));
}

void LibusbInterruptWatch::take(TransferResult result) {
  if (receiver_->isCancelled) return;
  if (result == TransferResult::kCompleted) {
    haltsInARow_ = 0;
    const auto length = static_cast<std::size_t>(std::max(transfer_->actual_length, 0));
    const auto bytes = std::as_bytes(std::span(buffer_)).first(length);
    waiting_.push_back({result, {bytes.begin(), bytes.end()}});
    // A device that reports without end waits until its reports have been dealt with; its own
    // endpoint holds it back.
    if (waiting_.size() < kMostWaiting) startReading();
  } else if (result == TransferResult::kStalled && haltsInARow_ < kMostHaltsInARow) {
    // Ending the halt takes a request of its own, which is none for within libusb's callback.
    ++haltsInARow_;
    isHalted_ = true;
  } else {
    waiting_.push_back({result, {}});
  }
  source_->wake();
}

void LibusbInterruptWatch::startReading() {
  // One read at a time: the order of events is that of the packets.
  if (inFlight_ || receiver_->isCancelled) return;
  int error = LIBUSB_ERROR_NO_MEM;
  if (transfer_) {
    libusb_fill_interrupt_transfer(transfer_.get(), handle_.device.get(), endpoints_.interruptIn,
                                   buffer_.data(), static_cast<int>(buffer_.size()), readEnded,
                                   this, 0);
    error = libusb_submit_transfer(transfer_.get());
  }
  inFlight_ = error == LIBUSB_SUCCESS;
  if (inFlight_) return;
  // Told from the loop like every other end, so that nobody is called back out of his own call.
  waiting_.push_back({resultOfError(error), {}});
  source_->wake();
}

void LibusbInterruptWatch::serve() {
  timeval noTime{};
  // With no time: the loop has said that something is there, or that a wake was due.
  libusb_handle_events_timeout_completed(handle_.context.get(), &noTime, nullptr);
  if (std::exchange(isHalted_, false)) {
    libusb_clear_halt(handle_.device.get(), endpoints_.interruptIn);
    startReading();
  }
  const auto packets = std::exchange(waiting_, {});
  const bool failed = !packets.empty() && packets.back().result != TransferResult::kCompleted;
  if (failed) {
    // The descriptor of a device that went may be ready for ever.
    source_.reset();
  } else {
    startReading();
  }
  // From here on nothing of this object is touched: the handler may destroy it.
  const auto receiver = receiver_;
  for (const Packet& packet : packets) {
    if (receiver->isCancelled) return;
    receiver->handler(packet.result, packet.bytes);
  }
}

namespace {

GIOCondition conditionOf(short events) {
  unsigned condition = G_IO_ERR | G_IO_HUP;
  if ((events & POLLIN) != 0) condition |= G_IO_IN;
  if ((events & POLLOUT) != 0) condition |= G_IO_OUT;
  return static_cast<GIOCondition>(condition);
}

}  // namespace

LibusbEventSource::LibusbEventSource(libusb_context* context, std::function<void()> ready)
    : context_(context), ready_(std::move(ready)) {
  // Without functions to prepare and check, GLib looks at the descriptors and the ready time alone.
  static GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
  raw_ = g_source_new(&functions, sizeof(GSource));
  g_source_set_callback(raw_, nullptr, this, nullptr);
  // What a device reports is in no hurry, and a device that reports without end holds nobody up.
  // Behind everything else that the loop has to do.
  g_source_set_priority(raw_, G_PRIORITY_DEFAULT_IDLE);
  g_source_attach(raw_, g_main_context_get_thread_default());
  source_ = AttachedSource(raw_);
  const libusb_pollfd** descriptors = libusb_get_pollfds(context_);
  for (auto each = descriptors; each != nullptr && *each != nullptr; ++each)
    descriptorCame((*each)->fd, (*each)->events, this);
  libusb_free_pollfds(descriptors);
  libusb_set_pollfd_notifiers(context_, descriptorCame, descriptorWent, this);
}

LibusbEventSource::~LibusbEventSource() {
  libusb_set_pollfd_notifiers(context_, nullptr, nullptr, nullptr);
}

// A ready time in the past makes the loop dispatch in its next turn.
void LibusbEventSource::wake() {
  g_source_set_ready_time(raw_, 0);
}

void LIBUSB_CALL LibusbEventSource::descriptorCame(int descriptor, short events,
                                                   void* self) noexcept {
  auto& source = *static_cast<LibusbEventSource*>(self);
  source.tags_[descriptor] = g_source_add_unix_fd(source.raw_, descriptor, conditionOf(events));
}

void LIBUSB_CALL LibusbEventSource::descriptorWent(int descriptor, void* self) noexcept {
  auto& source = *static_cast<LibusbEventSource*>(self);
  const auto tag = source.tags_.extract(descriptor);
  if (tag) g_source_remove_unix_fd(source.raw_, tag.mapped());
}

gboolean LibusbEventSource::dispatch(GSource* source, GSourceFunc, gpointer self) noexcept {
  // Once each time: without this the loop would never sleep again.
  g_source_set_ready_time(source, -1);
  // A copy, as the function may end with the source while it runs.
  const auto ready = static_cast<LibusbEventSource*>(self)->ready_;
  ready();
  return G_SOURCE_CONTINUE;
}

}  // namespace tarvo::ptp
