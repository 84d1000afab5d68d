#include "simulator/testbed/Testbed.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "simulator/MassStorageUnit.h"

namespace tarvo::simulator {
namespace {

/// How long an unplug waits for clients to take back what they had in flight.
constexpr std::chrono::milliseconds kReapPatience{500};
constexpr unsigned kMaximumDeviceNumber = 127;

std::string rootOf(UMockdevTestbed* testbed) {
  const std::unique_ptr<gchar, decltype(&g_free)> path(umockdev_testbed_get_root_dir(testbed),
                                                       &g_free);
  return path.get();
}

}  // namespace

std::uint32_t PluggedDevice::locationID() const {
  std::uint32_t location = port.bus << 24;
  unsigned shift = 20;
  std::size_t start = 0;
  while (start < port.path.size()) {
    const auto end = std::min(port.path.find('.', start), port.path.size());
    location |= static_cast<std::uint32_t>(std::stoul(port.path.substr(start, end - start)))
                << shift;
    shift -= 4;
    start = end + 1;
  }
  return location;
}

Testbed::Testbed(std::filesystem::path volumes)
    : testbed_(GObjectPointer<UMockdevTestbed>::adopt(umockdev_testbed_new())),
      tree_(testbed_.get()),
      root_(rootOf(testbed_.get())),
      volumes_(std::move(volumes)),
      alive_(std::make_shared<Testbed*>(this)) {
  if (NodeGate::mountQueues(root_ / "gates")) gates_ = root_ / "gates";
  tree_.addRootHub(1);
}

Testbed::~Testbed() {
  try {
    while (!devices_.empty())
      unplug(std::string(devices_.begin()->first));
  } catch (const std::exception& error) {
    g_warning("the testbed cannot be taken down: %s", error.what());
  }
  if (!gates_.empty()) ::umount2(gates_.c_str(), MNT_DETACH);
}

UsbPort Testbed::choosePort(const std::optional<std::string>& text) const {
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

UsbfsAddress Testbed::nextAddress(unsigned bus) {
  auto& last = lastDeviceNumber_.try_emplace(bus, 1).first->second;
  const auto inUse = [&](unsigned number) {
    return std::any_of(devices_.begin(), devices_.end(), [&](const auto& entry) {
      return entry.second->address.bus == bus && entry.second->address.device == number;
    });
  };
  // As the kernel does: always on, and from the start again when the numbers are used up.
  do {
    last = last >= kMaximumDeviceNumber ? 2 : last + 1;
  } while (inUse(last));
  return {bus, last};
}

ScsiNumbers Testbed::nextScsi(const DeviceDescription& description) {
  const auto free = [&](auto taken) {
    return std::none_of(devices_.begin(), devices_.end(),
                        [&](const auto& entry) { return taken(entry.second->scsi); });
  };
  ScsiNumbers numbers;
  numbers.host = nextHost_++;
  numbers.generic = 1;
  while (!free([&](const auto& other) { return other.generic == numbers.generic; })) {
    ++numbers.generic;
  }
  // From sdb on: a machine has a disk of its own, which programs expect to be sda.
  const bool optical = description.scsi.type == 5;
  char last = optical ? '0' : 'b';
  do {
    numbers.block = std::string(optical ? "sr" : "sd") + last++;
  } while (!free([&](const auto& other) { return other.block == numbers.block; }));
  return numbers;
}

std::string Testbed::plug(DeviceDescription description, std::string name,
                          const std::optional<std::string>& port) {
  auto plugged = std::make_unique<PluggedDevice>();
  plugged->port = choosePort(port);
  plugged->id = plugged->port.name();
  plugged->name = std::move(name);
  plugged->address = nextAddress(plugged->port.bus);
  plugged->description = std::move(description);
  const auto& known = plugged->description;
  if (known.kind == DeviceKind::kPTP) {
    plugged->camera = std::make_shared<PTPCamera>(known);
    plugged->device = plugged->camera;
  } else {
    plugged->device = std::make_shared<MassStorageUnit>(known);
  }
  tree_.addRootHub(plugged->port.bus);
  // The node answers before the event tells of it: a client may open it at once.
  attach(*plugged);
  tree_.addUsbDevice(plugged->port, plugged->address, plugged->device->descriptors());
  auto& entry = *(devices_[plugged->id] = std::move(plugged));
  if (entry.description.kind == DeviceKind::kMassStorage) {
    entry.scsi = nextScsi(entry.description);
    tree_.addScsiUnit(entry.port, entry.scsi, entry.description);
    if (entry.description.volume) {
      const bool optical = entry.description.scsi.type == 5;
      entry.volume = std::make_unique<Volume>(volumes_, root_ / "staging",
                                              "/dev/" + entry.scsi.block + (optical ? "" : "1"),
                                              *entry.description.volume);
    }
  }
  return entry.id;
}

std::unique_ptr<NodeGate> Testbed::makeNodeFile(const PluggedDevice& plugged) const {
  const std::filesystem::path path = root_.string() + plugged.address.node();
  std::filesystem::create_directories(path.parent_path());
  if (!gates_.empty()) {
    // The name is this testbed's own: queues belong to the whole IPC namespace.
    auto gate = NodeGate::create(gates_, root_.filename().string() + "-" + plugged.id);
    if (gate) {
      std::filesystem::create_symlink(gate->path(), path);
      return gate;
    }
  }
  const FileDescriptor file(::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0664));
  const auto bytes = plugged.device->descriptors().node();
  if (::write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + path.string());
  }
  return nullptr;
}

void Testbed::attach(PluggedDevice& plugged) {
  auto gate = makeNodeFile(plugged);
  // The device unplugs itself on the worker thread; the rest is done by the main loop.
  const auto vanished = [weak = std::weak_ptr<Testbed*>(alive_), id = plugged.id] {
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
  plugged.node = UsbfsNode::create(plugged.address, plugged.device, std::move(gate), vanished);
  plugged.handler = plugged.node->makeHandler();
  GErrorSlot error;
  if (!umockdev_testbed_attach_ioctl(testbed_.get(), plugged.address.node().c_str(),
                                     plugged.handler.get(), error.address())) {
    throw std::runtime_error("cannot attach to " + plugged.address.node() + ": " + error.message());
  }
}

void Testbed::unplug(const std::string& id) {
  const auto found = devices_.find(id);
  if (found == devices_.end()) {
    throw DescriptionError("no device \"" + id + "\" is plugged in");
  }
  const auto plugged = std::move(found->second);
  devices_.erase(found);
  plugged->volume.reset();
  // First what is in flight ends, then the events come, then sysfs goes, then the node.
  plugged->node->unplug(kReapPatience);
  tree_.remove(plugged->port);
  detach(*plugged);
}

void Testbed::detach(PluggedDevice& plugged) {
  GErrorSlot error;
  umockdev_testbed_detach_ioctl(testbed_.get(), plugged.address.node().c_str(), error.address());
  // umockdev leaves node files behind, and a later device of that number would find them.
  std::error_code ignored;
  std::filesystem::remove(root_.string() + plugged.address.node(), ignored);
  if (plugged.scsi.block.empty()) return;
  for (const auto& name :
       {plugged.scsi.block, plugged.scsi.block + "1", formatted("sg%u", plugged.scsi.generic)}) {
    std::filesystem::remove(root_ / "dev" / name, ignored);
  }
}

void Testbed::deviceVanished(const std::string& id) {
  // By now another device may be plugged in at that port.
  const auto* plugged = device(id);
  if (plugged == nullptr || !plugged->device->isGone()) return;
  unplug(id);
  if (vanished_) vanished_(id);
}

PluggedDevice* Testbed::device(const std::string& id) {
  const auto found = devices_.find(id);
  return found == devices_.end() ? nullptr : found->second.get();
}

std::vector<const PluggedDevice*> Testbed::devices() const {
  std::vector<const PluggedDevice*> list;
  for (const auto& [id, plugged] : devices_)
    list.push_back(plugged.get());
  return list;
}

}  // namespace tarvo::simulator
