// Why UDisks2 did not do what it was asked, as a dissenter with words for a person, and who keeps a
// volume busy.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "platform/diskarbitration/DiskArbitration.h"

namespace tarvo {

/// The name of a D-Bus error ("org.freedesktop.UDisks2.Error.DeviceBusy"); empty for an error that
/// no service sent.
std::string remoteErrorName(const GError* error);

/// For the error of a call: 0xE00002D5 the disk is busy, 0xE00002D6 it did not answer in time,
/// 0xF8DA0006 it has gone, 0xF8DA0008 this user may not do that, 0xF8DA000A there is no service or
/// no bus, 0xF8DA000C the service cannot do that to this disk, 0xF8DA0001 anything else.
DADissenter dissenterFor(const GError* error);

// Who keeps a volume busy.

/// "NAME (pid N)" of the processes that have something at or below one of the mount points: their
/// working or root folder, program, an open file, or a file mapped into memory. Several are
/// separated by commas, a few are enough. Empty when none is found; of another user's processes
/// nothing can be seen. The volumes themselves are not touched, so a dead one holds nobody up.
std::string processesUsing(const std::vector<std::string>& mountPoints);

}  // namespace tarvo
