// Who has a device node open.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "Utilities/FileDescriptor.h"
#include "platform/imagecapture/ptp/LibusbConnector.h"

namespace tarvo::ptp {
namespace {

TEST(InterfaceHolder, NamesTheOtherProcessThatHasTheNodeOpen) {
  char path[] = "/tmp/interface-holder-XXXXXX";
  FileDescriptor node(::mkstemp(path));
  ASSERT_TRUE(node.isOpen());
  EXPECT_EQ(processHolding(node.get()), "");  // We ourselves do not count.

  const pid_t child = ::fork();  // Inherits the descriptor.
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  std::string name;
  std::getline(std::ifstream("/proc/self/comm") >> std::ws, name);
  EXPECT_EQ(processHolding(node.get()), "process " + name + " (pid " + std::to_string(child) + ")");
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(processHolding(node.get()), "");
  ::unlink(path);
}

}  // namespace
}  // namespace tarvo::ptp
