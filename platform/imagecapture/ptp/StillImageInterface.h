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
/// Class 6 and subclass 1 are those of the USB Still Image Capture Device Definition 1.0; its
/// protocol 1 is PTP, but devices give others as well. Bulk packets are powers of two from 8 to
/// 1024 bytes (USB 2.0, 5.8.3, and USB 3 with 1024).
std::optional<StillImageEndpoints> stillImageEndpoints(const libusb_interface_descriptor& interface,
                                                       std::string* why);

/// The same for the interface `number` of a configuration.
std::optional<StillImageEndpoints> stillImageEndpoints(
    const libusb_config_descriptor& configuration, std::uint8_t number, std::string* why);

}  // namespace tarvo::ptp
