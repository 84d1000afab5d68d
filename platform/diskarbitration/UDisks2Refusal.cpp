#include "platform/diskarbitration/UDisks2Refusal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <fstream>
#include <memory>
#include <string_view>

#include "Utilities/Format.h"
#include "Utilities/Status.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/ProcessSearch.h"

namespace tarvo {
namespace {

struct Refusal {
  std::string_view name;
  Status status;
  const char* why;
};

/// What is not here is told in the service's own words.
/// Names of errors are the interface; the texts beside them are translated and change.
constexpr auto kRefusals = std::to_array<Refusal>({
    {"org.freedesktop.UDisks2.Error.DeviceBusy", status::kIOReturnBusy, "the volume is in use"},
    {"org.freedesktop.UDisks2.Error.AlreadyUnmounting", status::kIOReturnBusy,
     "the volume is being unmounted already"},
    {"org.freedesktop.UDisks2.Error.NotAuthorized", status::kDAReturnNotPermitted,
     "this user may not do that"},
    {"org.freedesktop.UDisks2.Error.NotAuthorizedCanObtain", status::kDAReturnNotPermitted,
     "that needs an authorisation, for which nobody was asked"},
    {"org.freedesktop.UDisks2.Error.NotAuthorizedDismissed", status::kDAReturnNotPermitted,
     "the authorisation was not given"},
    {"org.freedesktop.UDisks2.Error.MountedByOtherUser", status::kDAReturnNotPermitted,
     "another user has mounted the volume"},
    {"org.freedesktop.UDisks2.Error.NotSupported", status::kDAReturnUnsupported,
     "the disk does not know that"},
    {"org.freedesktop.UDisks2.Error.Timedout", status::kIOReturnTimeout,
     "the disk did not answer in time"},
    // A disk that has gone takes its object along, and its interfaces one by one before that.
    {"org.freedesktop.DBus.Error.UnknownObject", status::kDAReturnNotFound, "the disk has gone"},
    {"org.freedesktop.DBus.Error.UnknownMethod", status::kDAReturnNotFound, "the disk has gone"},
    {"org.freedesktop.DBus.Error.UnknownInterface", status::kDAReturnNotFound, "the disk has gone"},
    {"org.freedesktop.DBus.Error.AccessDenied", status::kDAReturnNotPermitted,
     "the system bus does not let this user do that"},
    {"org.freedesktop.DBus.Error.ServiceUnknown", status::kDAReturnNotReady,
     "there is no disk service (UDisks2)"},
    {"org.freedesktop.DBus.Error.NameHasNoOwner", status::kDAReturnNotReady,
     "there is no disk service (UDisks2)"},
    {"org.freedesktop.DBus.Error.NoReply", status::kDAReturnNotReady,
     "the disk service (UDisks2) went away"},
});

}  // namespace

std::string remoteErrorName(const GError* error) {
  return takeText(g_dbus_error_get_remote_error(error));
}

DADissenter dissenterFor(const GError* error) {
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED))
    return {status::kDAReturnNotReady, "the system bus is not there"};
  const std::string name = remoteErrorName(error);
  const auto known = std::ranges::find(kRefusals, name, &Refusal::name);
  if (known != kRefusals.end()) return {known->status, known->why};
  const std::unique_ptr<GError, GlibRelease<g_error_free>> copy(g_error_copy(error));
  // Otherwise the text begins with the name of the error, which says nothing to a user.
  g_dbus_error_strip_remote_error(copy.get());
  return {status::kDAReturnError, copy->message};
}

namespace {

using MountPoints = std::vector<std::string>;

/// No process of a desktop comes near it; one that does is not looked at to the end.
constexpr int kMostFiles = 65536;

bool isBelow(std::string_view path, const MountPoints& mountPoints) {
  return std::ranges::any_of(mountPoints, [&](const std::string& mountPoint) {
    return path.starts_with(mountPoint) &&
           (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
  });
}

/// By the text of the link alone: following it could wait for a device that has gone.
bool leadsBelow(int folder, const char* link, const MountPoints& mountPoints) {
  std::array<char, PATH_MAX> path;
  const ssize_t length = ::readlinkat(folder, link, path.data(), path.size());
  return length > 0 && isBelow({path.data(), static_cast<std::size_t>(length)}, mountPoints);
}

// A program that runs from the volume, or a library of it, keeps it busy without an open
// descriptor.
bool mapsFileBelow(const std::string& process, const MountPoints& mountPoints) {
  std::ifstream maps(process + "/maps");
  std::string line;
  // No field before the path has a slash in it (proc(5), /proc/PID/maps).
  for (int count = 0; count < kMostFiles && std::getline(maps, line); ++count) {
    const auto path = line.find('/');
    if (path != std::string::npos && isBelow(std::string_view(line).substr(path), mountPoints))
      return true;
  }
  return false;
}

bool uses(const std::string& process, const MountPoints& mountPoints) {
  for (const char* link : {"/cwd", "/root", "/exe"})
    if (leadsBelow(AT_FDCWD, (process + link).c_str(), mountPoints)) return true;
  int count = 0;
  return anyDescriptor(process,
                       [&](int list, const char* name) {
                         // Processes of other users are not to be looked into, and are not named.
                         return ++count < kMostFiles && leadsBelow(list, name, mountPoints);
                       }) ||
         mapsFileBelow(process, mountPoints);
}

}  // namespace

std::string processesUsing(const MountPoints& mountPoints) {
  constexpr std::size_t kMostNamed = 3;
  std::vector<std::string> users;
  for (const FoundProcess& user :
       processesWhere(kMostNamed, [&](const auto& process) { return uses(process, mountPoints); }))
    users.push_back(formatted("%s (pid %d)", user.name.c_str(), user.pid));
  std::string text;
  for (const std::string& user : users)
    text += (text.empty() ? "" : ", ") + user;
  return text;
}

}  // namespace tarvo
