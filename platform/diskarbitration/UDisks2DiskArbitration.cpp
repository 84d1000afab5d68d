#include "platform/diskarbitration/UDisks2DiskArbitration.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "platform/diskarbitration/UDisks2Session.h"

namespace tarvo {

UDisks2DiskArbitration::UDisks2DiskArbitration(BusConnection& systemBus, Registry& registry,
                                               const Interrupt* interrupt, LogSink log,
                                               MakeTimeout makeTimeout)
    : systemBus_(systemBus),
      registry_(registry),
      interrupt_(interrupt),
      log_(std::move(log)),
      makeTimeout_(std::move(makeTimeout)) {}

std::unique_ptr<DASession> UDisks2DiskArbitration::createSession() {
  return std::make_unique<UDisks2Session>(retained(systemBus_.connection()), registry_, interrupt_,
                                          log_, makeTimeout_);
}

GSource* UDisks2DiskArbitration::monotonicTimeout(std::chrono::milliseconds limit) {
  return g_timeout_source_new(
      static_cast<guint>(std::clamp<std::chrono::milliseconds::rep>(limit.count(), 0, UINT_MAX)));
}

}  // namespace tarvo
