// Who wants to hear of which events.
#pragma once

#include <map>
#include <utility>

#include "Utilities/LogSink.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo {

/// Main thread only. A callback may register, end registrations and send messages.
class EventRegistrations {
 public:
  explicit EventRegistrations(LogSink log) : log_(std::move(log)) {}

  /// One callback for each object (0: any) and type; an empty one ends the registration.
  void set(ICAObject object, FourCharCode type, ImageCapture::EventCallback callback);
  /// Calls who is registered for the event's object, then who is registered for any. An exception
  /// is logged and keeps the event from nobody else.
  void deliver(const ICAEvent& event) const;
  /// Whether an event of this type of the object would be heard by anybody.
  bool hears(ICAObject object, FourCharCode type) const {
    return callbacks_.contains({object, type}) || callbacks_.contains({0, type});
  }
  /// Ends every registration of the object.
  void forget(ICAObject object);

 private:
  /// Calls who is registered for `registered`, which is the event's object or 0.
  void deliverTo(ICAObject registered, const ICAEvent& event) const;

  LogSink log_;
  /// An empty function never stands here.
  std::map<std::pair<ICAObject, FourCharCode>, ImageCapture::EventCallback> callbacks_;
};

}  // namespace tarvo
