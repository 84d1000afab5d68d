// Which endpoints a still-image interface has, from its descriptors.
#pragma once

#include <libusb.h>

#include <optional>
#include <string>

#include "platform/imagecapture/ptp/USBDevice.h"

namespace tarvo::ptp {

/// The endpoints of an interface of class 6, subclass 1, whatever its protocol: two bulk ones, and
/// an interrupt one where the device has it. None, with the cause in `*why`, when one of the bulk
/// endpoints is missing or its packet size is none that USB allows.
std::optional<StillImageEndpoints> stillImageEndpoints(const libusb_interface_descriptor& interface,
                                                       std::string* why);

/// The same for the interface `number` of a configuration.
std::optional<StillImageEndpoints> stillImageEndpoints(
    const libusb_config_descriptor& configuration, std::uint8_t number, std::string* why);

}  // namespace tarvo::ptp
