// The testbed: virtual devices as USB and SCSI hardware, seen by unmodified programs.
//
//   TestbedProcess::enter(argv);              // first thing in main()
//   Testbed testbed("/run/media/me");
//   testbed.plug(DeviceDescription::fromFile("tarvo-camera.json"), "tarvo-camera");
//
// Programs see it when they start with TestbedProcess::environment(). Everything is in a private
// folder and in private mounts; the machine's own devices cannot be reached through it.
#pragma once

#include <umockdev.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/DeviceDescription.h"
#include "simulator/PTPCamera.h"
#include "simulator/testbed/SysfsTree.h"
#include "simulator/testbed/UsbfsNode.h"
#include "simulator/testbed/Volume.h"

namespace tarvo::simulator {

/// A device that is plugged in. Owned by the Testbed; `device` and `camera` may be kept beyond it.
struct PluggedDevice {
  std::string id;    ///< its port, "1-4"
  std::string name;  ///< of its description
  DeviceDescription description;
  UsbPort port;
  UsbfsAddress address;  ///< bus and device number, of which its node has its name
  std::shared_ptr<VirtualUSBDevice> device;
  std::shared_ptr<PTPCamera> camera;  ///< the same, where it is a PTP device; else null
  std::unique_ptr<Volume> volume;     ///< null where there is none
  std::shared_ptr<UsbfsNode> node;
  GObjectPointer<UMockdevIoctlBase> handler;  ///< what attaches `node` to umockdev
  ScsiNumbers scsi;                           ///< of a mass-storage device

  /// Location id: bus number in the top byte, then one port number a nibble from the top down.
  std::uint32_t locationID() const;
};

/// Main thread only; its default main context must run for a device that unplugs itself.
class Testbed {
 public:
  /// `volumes`: the folder under which volumes are mounted.
  explicit Testbed(std::filesystem::path volumes);
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;
  ~Testbed();

  /// Plugs a device in and returns its id. `port` is "BUS-PORT"; none: the first free port of
  /// bus 1. Raises DescriptionError for a port that is none or in use, std::system_error for a
  /// volume that cannot be mounted.
  std::string plug(DeviceDescription description, std::string name,
                   const std::optional<std::string>& port = std::nullopt);
  /// Unplugs; an unknown id raises DescriptionError. Waits up to half a second for clients to take
  /// back what they had in flight, as their wait must end before the node goes.
  void unplug(const std::string& id);

  /// Null when there is none of that id.
  PluggedDevice* device(const std::string& id);
  std::vector<const PluggedDevice*> devices() const;  ///< valid until the next plug or unplug
  /// Called after a device has unplugged itself, with its id.
  void onVanished(std::function<void(const std::string&)> callback) {
    vanished_ = std::move(callback);
  }

  /// A number for the next program that is started in the testbed.
  unsigned nextClientSlot() { return ++lastClientSlot_; }

  const std::filesystem::path& root() const { return root_; }
  const std::filesystem::path& volumes() const { return volumes_; }

 private:
  // Numbers as the kernel gives them: never one that is in use.
  UsbPort choosePort(const std::optional<std::string>& text) const;
  UsbfsAddress nextAddress(unsigned bus);
  ScsiNumbers nextScsi(const DeviceDescription& description);
  /// The file that a node is; gives the gate behind it where there is one.
  std::unique_ptr<NodeGate> makeNodeFile(const PluggedDevice& plugged) const;
  void attach(PluggedDevice& plugged);
  void detach(PluggedDevice& plugged);
  void deviceVanished(const std::string& id);

  GObjectPointer<UMockdevTestbed> testbed_;
  SysfsTree tree_;
  std::filesystem::path root_;
  std::filesystem::path volumes_;
  std::filesystem::path gates_;  ///< where the queues of the nodes are mounted; empty: nowhere
  std::map<std::string, std::unique_ptr<PluggedDevice>> devices_;  ///< by id
  std::map<unsigned, unsigned> lastDeviceNumber_;                  ///< by bus
  unsigned nextHost_ = 6;
  unsigned lastClientSlot_ = 0;
  std::function<void(const std::string&)> vanished_;
  std::shared_ptr<Testbed*> alive_;  ///< for calls that come through the main loop
};

}  // namespace tarvo::simulator
