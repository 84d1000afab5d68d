#include "platform/diskarbitration/UDisks2Refusal.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "Utilities/DiskStatus.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo {
namespace {

struct Refusal {
  std::string_view name;
  Status status;
  const char* why;
};

/// What is not here is told in the service's own words.
constexpr auto kRefusals = std::to_array<Refusal>({
    {"org.freedesktop.UDisks2.Error.DeviceBusy", status::kIOReturnBusy, "the volume is in use"},
    {"org.freedesktop.UDisks2.Error.AlreadyUnmounting", status::kIOReturnBusy,
     "the volume is being unmounted already"},
    {"org.freedesktop.UDisks2.Error.NotAuthorized", status::kDAReturnNotPermitted,
     "this user may not do that"},
    {"org.freedesktop.UDisks2.Error.NotAuthorizedCanObtain", status::kDAReturnNotPermitted,
     "that needs an authorisation, which nobody was asked for"},
    {"org.freedesktop.UDisks2.Error.NotAuthorizedDismissed", status::kDAReturnNotPermitted,
     "the authorisation was not given"},
    {"org.freedesktop.UDisks2.Error.MountedByOtherUser", status::kDAReturnNotPermitted,
     "another user has mounted the volume"},
    {"org.freedesktop.UDisks2.Error.NotSupported", status::kDAReturnUnsupported,
     "the disk does not know that"},
    {"org.freedesktop.UDisks2.Error.Timedout", status::kIOReturnTimeout,
     "the disk did not answer in time"},
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
  g_dbus_error_strip_remote_error(copy.get());
  return {status::kDAReturnError, copy->message};
}

}  // namespace tarvo
