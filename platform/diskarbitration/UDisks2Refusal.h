// Why UDisks2 did not do what it was asked, as a dissenter with words for a person.
#pragma once

#include <gio/gio.h>

#include <string>

#include "platform/diskarbitration/DiskArbitration.h"

namespace tarvo {

/// The name of a D-Bus error ("org.freedesktop.UDisks2.Error.DeviceBusy"); empty for an error that
/// no service sent.
std::string remoteErrorName(const GError* error);

/// For the error of a call: 0xE00002D5 the disk is busy, 0xE00002D6 it did not answer in time,
/// 0xF8DA0006 it has gone, 0xF8DA0008 this user may not do that, 0xF8DA000A there is no service or
/// no bus, 0xF8DA000C the service cannot do that to this disk, 0xF8DA0001 anything else.
DADissenter dissenterFor(const GError* error);

}  // namespace tarvo
