#include "simulator/testbed/Testbed.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"
#include "simulator/description/ContentDescription.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/testbed/SgNode.h"
#include "simulator/testbed/UsbfsNode.h"

namespace tarvo::simulator {
namespace {

/// How long an unplug waits for clients to take back what they had in flight.
constexpr std::chrono::milliseconds kReapPatience{500};
constexpr unsigned kMaximumDeviceNumber = 127;
/// Largest block that does not come from the system by itself; it takes no more.
constexpr int kMostFromHeap = 32 << 20;
constexpr int kMostKept = 256 << 20;

std::string rootOf(UMockdevTestbed* testbed) {
  const std::unique_ptr<gchar, decltype(&g_free)> path(umockdev_testbed_get_root_dir(testbed),
                                                       &g_free);
  return path.get();
}

}  // namespace

Testbed::Testbed(std::filesystem::path volumes)
    : testbed_(GObjectPointer<UMockdevTestbed>::adopt(umockdev_testbed_new())),
      tree_(testbed_.get()),
      root_(rootOf(testbed_.get())),
      volumes_(std::move(volumes)) {
  // Each transfer has buffers of a megabyte; giving them to the system and taking them from it
  // again would take several times as long as filling them.
  ::mallopt(M_MMAP_THRESHOLD, kMostFromHeap);
  ::mallopt(M_TRIM_THRESHOLD, kMostKept);
  if (NodeGate::mountQueues(root_ / "gates")) gates_ = root_ / "gates";
  tree_.addRootHub(1);
}

Testbed::~Testbed() {
  try {
    unplugAll();
  } catch (const std::exception& error) {
    g_warning("the testbed cannot be taken down: %s", error.what());
  }
  if (!gates_.empty()) ::umount2(gates_.c_str(), MNT_DETACH);
}

std::unique_ptr<HostedDevice> Testbed::makeEntry() {
  return std::make_unique<PluggedDevice>();
}

template <typename Holds>
bool Testbed::any(Holds holds) const {
  return std::any_of(present().begin(), present().end(), [&](const auto& entry) {
    return holds(static_cast<const PluggedDevice&>(*entry.second));
  });
}

UsbfsAddress Testbed::nextAddress(unsigned bus) {
  auto& last = lastDeviceNumber_.try_emplace(bus, 1).first->second;
  const auto inUse = [&](unsigned number) {
    return any([&](const PluggedDevice& other) {
      return other.address.bus == bus && other.address.device == number;
    });
  };
  // As the kernel does: always on, and from the start again when the numbers are used up.
  do {
    last = last >= kMaximumDeviceNumber ? 2 : last + 1;
  } while (inUse(last));
  return {bus, last};
}

ScsiNumbers Testbed::nextScsi(const DeviceDescription& description) {
  ScsiNumbers numbers;
  numbers.host = nextHost_++;
  numbers.generic = 1;
  while (any([&](const auto& other) { return other.scsi.generic == numbers.generic; })) {
    ++numbers.generic;
  }
  // From sdb on: a machine has a disk of its own, which programs expect to be sda.
  const bool optical = description.scsi.type == kOpticalType;
  char last = optical ? '0' : 'b';
  do {
    numbers.block = std::string(optical ? "sr" : "sd") + last++;
  } while (any([&](const auto& other) { return other.scsi.block == numbers.block; }));
  return numbers;
}

void Testbed::show(HostedDevice& device) {
  auto& plugged = static_cast<PluggedDevice&>(device);
  plugged.address = nextAddress(plugged.port.bus);
  plugged.node = plugged.address.node();
  tree_.addRootHub(plugged.port.bus);
  // The node answers before the event tells of it: a client may open it at once.
  attach(plugged);
  tree_.addUsbDevice(plugged.port, plugged.address, plugged.device->descriptors());
  if (!plugged.unit) return;
  const auto& description = plugged.description;
  plugged.scsi = nextScsi(description);
  attachGeneric(plugged);
  tree_.addScsiUnit(plugged.port, plugged.scsi, description);
  if (!description.volume) return;
  const bool optical = description.scsi.type == kOpticalType;
  plugged.volume = std::make_unique<Volume>(volumes_, root_ / "staging",
                                            "/dev/" + plugged.scsi.block + (optical ? "" : "1"),
                                            *description.volume);
  plugged.mountPoint = plugged.volume->mountPoint().string();
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
  plugged.usbfs =
      UsbfsNode::create(plugged.address, plugged.device, std::move(gate), vanishing(plugged));
  plugged.handler = plugged.usbfs->makeHandler();
  attachHandler(plugged.address.node(), plugged.handler.get());
}

void Testbed::attachGeneric(PluggedDevice& plugged) {
  plugged.generic = SgNode::create(plugged.scsi.host, plugged.unit, vanishing(plugged));
  plugged.genericHandler = plugged.generic->makeHandler();
  if (deadNodes_.erase(plugged.scsi.genericNode()) > 0) {
    GErrorSlot error;
    umockdev_testbed_detach_ioctl(testbed_.get(), plugged.scsi.genericNode().c_str(),
                                  error.address());
  }
  attachHandler(plugged.scsi.genericNode(), plugged.genericHandler.get());
}

void Testbed::attachHandler(const std::string& node, UMockdevIoctlBase* handler) {
  GErrorSlot error;
  if (!umockdev_testbed_attach_ioctl(testbed_.get(), node.c_str(), handler, error.address())) {
    throw std::runtime_error("cannot attach to " + node + ": " + error.message());
  }
}

void Testbed::hide(HostedDevice& device) {
  auto& plugged = static_cast<PluggedDevice&>(device);
  plugged.volume.reset();
  // First what is in flight ends, then the events come, then sysfs goes, then the node.
  if (plugged.generic) plugged.generic->unplug(kReapPatience);
  plugged.usbfs->unplug(kReapPatience);
  tree_.remove(plugged.port);
  detach(plugged);
}

void Testbed::detach(PluggedDevice& plugged) {
  GErrorSlot error;
  umockdev_testbed_detach_ioctl(testbed_.get(), plugged.address.node().c_str(), error.address());
  // umockdev leaves node files behind, and a later device of that number would find them.
  std::error_code ignored;
  std::filesystem::remove(root_.string() + plugged.address.node(), ignored);
  if (!plugged.generic) return;
  // A client that has it open still hears that the unit has gone; without a handler it would die.
  deadNodes_.insert(plugged.scsi.genericNode());
  std::filesystem::remove(root_.string() + plugged.scsi.genericNode(), ignored);
  for (const auto& name : {plugged.scsi.block, plugged.scsi.block + "1"})
    std::filesystem::remove(root_ / "dev" / name, ignored);
}

namespace fs = std::filesystem;

Volume::Volume(const fs::path& folder, const fs::path& staging, const std::string& source,
               const VolumeDescription& description)
    : mountPoint_(folder / description.label) {
  const auto fail = [&](const char* what) {
    throw std::system_error(errno, std::generic_category(), what + mountPoint_.string());
  };
  fs::create_directories(mountPoint_);
  fs::create_directories(staging);
  if (::mount(source.c_str(), staging.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    fail("cannot mount a volume at ");
  }
  // The content is there before the mount shows in the volumes folder: a volume arrives whole.
  writeContent(staging, description.content);
  if (::mount(staging.c_str(), mountPoint_.c_str(), nullptr, MS_MOVE, nullptr) != 0) {
    ::umount2(staging.c_str(), MNT_DETACH);
    fail("cannot move a volume to ");
  }
}

Volume::~Volume() {
  // Lazily, as when the medium is pulled out under a reader.
  ::umount2(mountPoint_.c_str(), MNT_DETACH);
  std::error_code ignored;
  fs::remove(mountPoint_, ignored);
}

}  // namespace tarvo::simulator
