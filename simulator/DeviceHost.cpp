#include "simulator/DeviceHost.h"

#include <glib.h>

#include <stdexcept>
#include <utility>

#include "simulator/JsonNode.h"

namespace tarvo::simulator {

UsbPort DeviceHost::choosePort(const std::optional<std::string>& text) const {
  if (text) {
    auto port = UsbPort::parse(*text);
    if (devices_.contains(port.name())) {
      throw DescriptionError("port " + port.name() + " is in use");
    }
    return port;
  }
  for (unsigned number = 1; number <= 15; ++number) {
    UsbPort port{1, std::to_string(number)};
    if (!devices_.contains(port.name())) return port;
  }
  throw DescriptionError("all ports of bus 1 are in use");
}

std::string DeviceHost::plug(DeviceDescription description, std::string name,
                             const std::optional<std::string>& port) {
  auto entry = makeEntry();
  entry->port = choosePort(port);
  entry->id = entry->port.name();
  entry->name = std::move(name);
  entry->description = std::move(description);
  if (entry->description.kind == DeviceKind::kPTP) {
    entry->camera = std::make_shared<PTPCamera>(entry->description);
    entry->device = entry->camera;
  } else {
    entry->unit = std::make_shared<MassStorageUnit>(entry->description);
    entry->device = entry->unit;
  }
  auto& device = *entry;
  devices_[device.id] = std::move(entry);
  try {
    show(device);
  } catch (...) {
    devices_.erase(device.id);
    throw;
  }
  return device.id;
}

void DeviceHost::unplug(const std::string& id) {
  const auto found = devices_.find(id);
  if (found == devices_.end()) {
    throw DescriptionError("no device \"" + id + "\" is plugged in");
  }
  const auto device = std::move(found->second);
  devices_.erase(found);
  hide(*device);
}

void DeviceHost::unplugAll() {
  while (!devices_.empty())
    unplug(std::string(devices_.begin()->first));
}

std::function<void()> DeviceHost::vanishing(const HostedDevice& device) {
  return [weak = std::weak_ptr<DeviceHost*>(alive_), id = device.id] {
    auto* call = new std::function<void()>([weak, id] {
      if (const auto alive = weak.lock()) (*alive)->deviceVanished(id);
    });
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer function) -> gboolean {
          (*static_cast<std::function<void()>*>(function))();
          return G_SOURCE_REMOVE;
        },
        call, [](gpointer function) { delete static_cast<std::function<void()>*>(function); });
  };
}

void DeviceHost::deviceVanished(const std::string& id) {
  // By now another device may be plugged in at that port.
  const auto* gone = device(id);
  if (gone == nullptr || !gone->device->isGone()) return;
  unplug(id);
  if (vanished_) vanished_(id);
}

HostedDevice* DeviceHost::device(const std::string& id) {
  const auto found = devices_.find(id);
  return found == devices_.end() ? nullptr : found->second.get();
}

std::vector<const HostedDevice*> DeviceHost::devices() const {
  std::vector<const HostedDevice*> list;
  for (const auto& [id, device] : devices_)
    list.push_back(device.get());
  return list;
}

}  // namespace tarvo::simulator
