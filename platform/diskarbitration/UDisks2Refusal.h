// Why UDisks2 did not do what it was asked, as a dissenter with words for a person.
#pragma once

#include <gio/gio.h>

#include <string>

#include "platform/diskarbitration/DiskArbitration.h"

namespace tarvo {

/// The name of a D-Bus error ("org.freedesktop.UDisks2.Error.DeviceBusy"); empty for an error that
/// no service sent.
std::string remoteErrorName(const GError* error);

/// For the error of a call. Statuses are IOKit's: 0xE00002C0 the disk has gone, 0xE00002C1 this
/// user may not do that, 0xE00002C7 there is no service or it cannot do that to this disk,
/// 0xE00002D5 the disk is busy, 0xE00002D6 it did not answer in time, 0xE00002BC anything else,
/// such as a bus or a service that went away meanwhile.
DADissenter dissenterFor(const GError* error);

}  // namespace tarvo
