// What opening a device node says when it cannot.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "Utilities/FileDescriptor.h"
#include "platform/imagecapture/ptp/InterfaceHolder.h"
#include "platform/imagecapture/ptp/LibusbDeviceOpener.h"

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

TEST(LibusbDeviceOpener, SaysThatANodeIsGoneOrIsNone) {
  LibusbDeviceOpener opener;
  Status failure = 0;
  std::string why;
  EXPECT_EQ(opener.open({"/dev/bus/usb/999/999", 0}, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kICADeviceGone);
  EXPECT_EQ(why, "/dev/bus/usb/999/999 is gone");
  EXPECT_EQ(opener.open({"/dev/null", 0}, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kIOError);
  EXPECT_THAT(why, testing::HasSubstr("/dev/null"));
}

}  // namespace
}  // namespace tarvo::ptp
