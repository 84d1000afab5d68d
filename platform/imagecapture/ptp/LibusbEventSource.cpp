#include "platform/imagecapture/ptp/LibusbEventSource.h"

#include <poll.h>

#include <span>
#include <utility>

namespace tarvo::ptp {
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
  g_source_set_priority(raw_, G_PRIORITY_DEFAULT_IDLE);
  g_source_attach(raw_, nullptr);
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
  g_source_set_ready_time(source, -1);
  // A copy, as the function may end with the source while it runs.
  const auto ready = static_cast<LibusbEventSource*>(self)->ready_;
  ready();
  return G_SOURCE_CONTINUE;
}

}  // namespace tarvo::ptp
