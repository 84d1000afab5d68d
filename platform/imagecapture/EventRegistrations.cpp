#include "platform/imagecapture/EventRegistrations.h"

#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {

void EventRegistrations::set(ICAObject object, FourCharCode type,
                             ImageCapture::EventCallback callback) {
  if (callback) {
    callbacks_[{object, type}] = std::move(callback);
  } else {
    callbacks_.erase({object, type});
  }
}

void EventRegistrations::deliver(const ICAEvent& event) const {
  // The object's own listener first: it knows the object, the other may ask it.
  deliverTo(event.object, event);
  deliverTo(0, event);
}

void EventRegistrations::forget(ICAObject object) {
  std::erase_if(callbacks_, [&](const auto& each) { return each.first.first == object; });
}

void EventRegistrations::deliverTo(ICAObject registered, const ICAEvent& event) const {
  const auto found = callbacks_.find({registered, event.type});
  if (found == callbacks_.end()) return;
  const auto callback = found->second;  // it may be replaced while it runs
  guardedEntry(log_, "Image Capture event", [&] { callback(event); });
}

}  // namespace tarvo
