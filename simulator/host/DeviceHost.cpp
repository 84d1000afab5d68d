#include "simulator/host/DeviceHost.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <sstream>
#include <utility>

#include "simulator/bytes/JsonNode.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {
namespace {

/// Has the main loop call `function` once, after `delay`; any thread.
void callLater(std::function<void()> function, std::chrono::milliseconds delay) {
  const auto call = [](gpointer each) -> gboolean {
    (*static_cast<std::function<void()>*>(each))();
    return G_SOURCE_REMOVE;
  };
  g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(delay.count()), call,
                     new std::function<void()>(std::move(function)),
                     [](gpointer each) { delete static_cast<std::function<void()>*>(each); });
}

}  // namespace

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
  return [weak = std::weak_ptr<DeviceHost*>(alive_), id = device.id, unit = device.unit,
          leaveAfter = device.description.leaveAfter] {
    const auto tell = [weak, id] {
      if (const auto alive = weak.lock()) (*alive)->deviceVanished(id);
    };
    const bool wasTold = unit && unit->powersDown();
    callLater(tell, wasTold ? leaveAfter : std::chrono::milliseconds::zero());
  };
}

void DeviceHost::deviceVanished(const std::string& id) {
  // By now another device may be plugged in at that port.
  const auto* gone = device(id);
  if (gone == nullptr || !gone->device->isGone()) return;
  if (gone->unit && gone->unit->returnsAsCamera()) plugLater(gone->port, gone->description);
  unplug(id);
  if (vanished_) vanished_(id);
}

void DeviceHost::plugLater(const UsbPort& port, const DeviceDescription& unit) {
  const auto plugIt = [weak = std::weak_ptr<DeviceHost*>(alive_), id = port.name(),
                       camera = unit.camera] {
    const auto alive = weak.lock();
    if (!alive || (*alive)->device(id) != nullptr) return;
    try {
      (*alive)->plug(*camera, camera->usb.name, id);
    } catch (const std::exception& error) {
      g_warning("%s does not come back: %s", id.c_str(), error.what());
    }
  };
  callLater(plugIt, unit.wakeAfter);
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

std::string UsbPort::name() const {
  return std::to_string(bus) + "-" + path;
}

UsbPort UsbPort::parse(const std::string& text) {
  const auto fail = [&] {
    throw DescriptionError("port \"" + text +
                           "\": BUS-PORT is expected, for example 1-4 or 1-4.2 (bus 1 to 255, "
                           "ports 1 to 15)");
  };
  const auto dash = text.find('-');
  if (dash == std::string::npos) fail();
  UsbPort port;
  const auto bus = parseNumber(text.substr(0, dash), 255);
  if (!bus || *bus == 0) fail();
  port.bus = static_cast<unsigned>(*bus);
  port.path = text.substr(dash + 1);
  std::istringstream parts(port.path);
  std::string part;
  unsigned count = 0;
  while (std::getline(parts, part, '.')) {
    const auto number = parseNumber(part, 15);
    if (!number || *number == 0 || ++count > 6) fail();
  }
  if (count == 0 || port.path.back() == '.') fail();
  return port;
}

std::uint32_t UsbPort::locationID() const {
  std::uint32_t location = bus << 24;
  unsigned shift = 20;
  std::size_t start = 0;
  while (start < path.size()) {
    const auto end = std::min(path.find('.', start), path.size());
    location |= static_cast<std::uint32_t>(std::stoul(path.substr(start, end - start))) << shift;
    shift -= 4;
    start = end + 1;
  }
  return location;
}

}  // namespace tarvo::simulator
