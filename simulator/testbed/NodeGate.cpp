#include "simulator/testbed/NodeGate.h"

#include <fcntl.h>
#include <mqueue.h>
#include <sys/mount.h>

#include "Utilities/FileDescriptor.h"

namespace tarvo::simulator {

bool NodeGate::mountQueues(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  return !error && ::mount("mqueue", folder.c_str(), "mqueue", MS_NOSUID | MS_NODEV | MS_NOEXEC,
                           nullptr) == 0;
}

std::unique_ptr<NodeGate> NodeGate::create(const std::filesystem::path& folder,
                                           const std::string& name) {
  mq_attr attributes{};
  attributes.mq_maxmsg = 1;
  attributes.mq_msgsize = 1;
  const auto queueName = "/" + name;
  FileDescriptor queue(::mq_open(
      queueName.c_str(), O_CREAT | O_EXCL | O_RDWR | O_NONBLOCK | O_CLOEXEC, 0664, &attributes));
  std::error_code ignored;
  if (!queue.isOpen() || !std::filesystem::exists(folder / name, ignored)) return nullptr;
  return std::unique_ptr<NodeGate>(new NodeGate(folder / name, queueName));
}

NodeGate::~NodeGate() {
  ::mq_unlink(name_.c_str());
}

void NodeGate::setReady(bool ready) {
  if (ready == ready_) return;
  ready_ = ready;
  const FileDescriptor queue(::mq_open(name_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  char message = 0;
  if (ready) {
    ::mq_receive(queue.get(), &message, 1, nullptr);
  } else {
    ::mq_send(queue.get(), &message, 1, 0);
  }
}

}  // namespace tarvo::simulator
