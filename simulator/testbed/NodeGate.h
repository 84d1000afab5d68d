// The file behind an emulated device node: says "ready" to poll() only when the testbed wants so.
//
// A real node of usbfs is ready for writing (POLLOUT) exactly while a request can be reaped. A
// regular file is always ready, so a host that waits for one would ask again and again. The one
// kind of file that can be opened by path, allows seeking and is governed from outside is a POSIX
// message queue (mq_overview(7)): it is ready for writing while it is not full, and this one has
// room for a single message.
//
//   auto gate = NodeGate::create(folder, "node");  // folder: a mounted mqueue file system
//   std::filesystem::create_symlink(gate->path(), node);
//   gate->setReady(false);
#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace tarvo::simulator {

/// Not locked: its node guards it. The queue goes with it; who has it open keeps it. It is not held
/// open here, so that a program that asks who holds a device's node finds its clients only.
class NodeGate {
 public:
  /// Mounts the file system of this IPC namespace's queues; false where the system refuses.
  static bool mountQueues(const std::filesystem::path& folder);
  /// A gate that is ready, as `name` in a folder that mountQueues() has mounted; null where the
  /// system gives no queue.
  static std::unique_ptr<NodeGate> create(const std::filesystem::path& folder,
                                          const std::string& name);
  NodeGate(const NodeGate&) = delete;
  NodeGate& operator=(const NodeGate&) = delete;
  ~NodeGate();

  const std::filesystem::path& path() const { return path_; }
  void setReady(bool ready);

 private:
  NodeGate(std::filesystem::path path, std::string name)
      : path_(std::move(path)), name_(std::move(name)) {}

  std::filesystem::path path_;
  std::string name_;  ///< with the slash that queues have
  bool ready_ = true;
};

}  // namespace tarvo::simulator
