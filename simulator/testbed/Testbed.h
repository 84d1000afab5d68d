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
#include <map>
#include <memory>
#include <set>
#include <string>

#include "simulator/description/DeviceDescription.h"
#include "simulator/host/DeviceHost.h"
#include "simulator/testbed/IoctlMemory.h"
#include "simulator/testbed/SysfsTree.h"

namespace tarvo::simulator {

class NodeGate;
class SgNode;
class UsbfsNode;

/// Mounted from construction to destruction. Main thread only.
class Volume {
 public:
  /// Mounts the volume at `folder`/label; `staging` is where it is filled before. Raises
  /// std::system_error when it cannot be mounted or filled.
  Volume(const std::filesystem::path& folder, const std::filesystem::path& staging,
         const std::string& source, const VolumeDescription& description);
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;
  ~Volume();

  const std::filesystem::path& mountPoint() const { return mountPoint_; }

 private:
  std::filesystem::path mountPoint_;
};

/// A device that is plugged in here.
struct PluggedDevice : HostedDevice {
  UsbfsAddress address;            ///< bus and device number, of which its node has its name
  std::unique_ptr<Volume> volume;  ///< null where there is none
  std::shared_ptr<UsbfsNode> usbfs;
  GObjectPointer<UMockdevIoctlBase> handler;  ///< what attaches `usbfs` to umockdev
  // Of a mass-storage device.
  ScsiNumbers scsi;
  std::shared_ptr<SgNode> generic;                   ///< behind its node of the SCSI generic driver
  GObjectPointer<UMockdevIoctlBase> genericHandler;  ///< what attaches it
};

/// Main thread only; its default main context must run for a device that unplugs itself.
class Testbed : public DeviceHost {
 public:
  /// `volumes`: the folder under which volumes are mounted.
  explicit Testbed(std::filesystem::path volumes);
  ~Testbed() override;

  /// As in DeviceHost, with what is known of it here.
  PluggedDevice* device(const std::string& id) {
    return static_cast<PluggedDevice*>(DeviceHost::device(id));
  }
  /// A number for the next program that is started in the testbed.
  unsigned nextClientSlot() { return ++lastClientSlot_; }

  /// Lent, for hardware that is none of the simulator's devices.
  UMockdevTestbed* umockdev() const { return testbed_.get(); }
  const std::filesystem::path& root() const { return root_; }
  const std::filesystem::path& volumes() const { return volumes_; }

 protected:
  std::unique_ptr<HostedDevice> makeEntry() override;
  void show(HostedDevice& device) override;
  /// Waits up to half a second for clients to take back what they had in flight, as their wait must
  /// end before the node goes.
  void hide(HostedDevice& device) override;

 private:
  // Numbers as the kernel gives them: never one that is in use.
  UsbfsAddress nextAddress(unsigned bus);
  ScsiNumbers nextScsi(const DeviceDescription& description);
  /// Whether `holds` for any device that is plugged in.
  template <typename Holds>
  bool any(Holds holds) const;
  /// The file that a node is; gives the gate behind it where there is one.
  std::unique_ptr<NodeGate> makeNodeFile(const PluggedDevice& plugged) const;
  void attach(PluggedDevice& plugged);
  void attachGeneric(PluggedDevice& plugged);
  void attachHandler(const std::string& node, UMockdevIoctlBase* handler);
  void detach(PluggedDevice& plugged);

  GObjectPointer<UMockdevTestbed> testbed_;
  SysfsTree tree_;
  std::filesystem::path root_;
  std::filesystem::path volumes_;
  std::filesystem::path gates_;  ///< where the queues of the nodes are mounted; empty: nowhere
  std::map<unsigned, unsigned> lastDeviceNumber_;  ///< by bus
  /// Of units that have gone; their handlers answer until a node of that name comes again.
  std::set<std::string> deadNodes_;
  unsigned nextHost_ = 6;
  unsigned lastClientSlot_ = 0;
};

}  // namespace tarvo::simulator
