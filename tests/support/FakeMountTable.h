// A mount table that the test fills.
//
//   FakeMountTable table("/media/u");
//   table.mount("/dev/sdb1", "/media/u/CARD");  // tells the watcher
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/foundation/MountTable.h"

namespace tarvo::test {

class FakeMountTable : public MountTable {
 public:
  explicit FakeMountTable(std::string volumesFolder) : volumesFolder_(std::move(volumesFolder)) {}

  void mount(std::string device, std::string mountPoint) {
    add(std::move(device), std::move(mountPoint));
    tellWatcher();
  }
  void unmount(std::string_view mountPoint) {
    std::erase_if(mounts_, [&](const Mount& each) { return each.mountPoint == mountPoint; });
    tellWatcher();
  }
  /// What was mounted before anybody asked.
  void add(std::string device, std::string mountPoint) {
    mounts_.push_back({std::move(device), std::move(mountPoint)});
  }
  /// Volumes are mounted here from now on.
  void moveTo(std::string volumesFolder) { volumesFolder_ = std::move(volumesFolder); }

  std::vector<Mount> mounts() const override { return mounts_; }
  std::optional<std::string> deviceMountedAt(std::string_view path) const override {
    std::optional<std::string> device;
    for (const Mount& each : mounts_) {
      if (each.mountPoint == path) device = each.device;  // the last one covers the others
    }
    return device;
  }
  const std::string& volumesFolder() const override { return volumesFolder_; }
  void watch(std::function<void()> changed) override { changed_ = std::move(changed); }

 private:
  void tellWatcher() {
    if (const auto changed = changed_) changed();
  }

  std::string volumesFolder_;
  std::vector<Mount> mounts_;
  std::function<void()> changed_;
};

}  // namespace tarvo::test
