#include "platform/iokit/UdevPresence.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Utilities/FileDescriptor.h"
#include "Utilities/Format.h"

namespace tarvo {

std::string missingPartOfUdev(const std::string& root) {
  if (::access((root + "/sys/bus").c_str(), F_OK) != 0)
    return "no " + root + "/sys: devices cannot be found";
  // The kernel's own events are not enough: the registry hears what udev passes on.
  const std::string daemon = root + "/run/udev/control";
  if (::access(daemon.c_str(), F_OK) != 0)
    return "udev does not run (no " + daemon + "): devices may not be noticed";
  // Containers often have both folders and yet forbid the socket.
  const FileDescriptor events(
      ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
  if (!events.isOpen())
    return formatted("no device events (%s): devices are not noticed", std::strerror(errno));
  return {};
}

}  // namespace tarvo
