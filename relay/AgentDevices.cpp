#include "relay/AgentDevices.h"

#include <utility>

namespace tarvo::relay {
namespace {

std::vector<Arrival> devicesIn(GVariant* devices) {
  std::vector<Arrival> all;
  if (devices == nullptr) return all;
  GVariantIter rows;
  g_variant_iter_init(&rows, devices);
  const char *type = nullptr, *path = nullptr, *serial = nullptr;
  gint32 location = 0;
  while (all.size() < AgentDevices::kMost &&
         g_variant_iter_next(&rows, "(&si&s&s)", &type, &location, &path, &serial) != FALSE)
    // Without a type it is not supported.
    if (*type != '\0') all.push_back({.type = type, .location = location, .path = path});
  return all;
}

}  // namespace

AgentDevices::AgentDevices(Changed changed, GDBusConnection* bus)
    : devices_("Devices", "a(siss)",
               [changed = std::move(changed)](GVariant* devices) { changed(devicesIn(devices)); }) {
  devices_.follow(bus);
}

}  // namespace tarvo::relay
