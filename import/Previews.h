// Small pictures of what lies on a device.
#pragma once

#include <optional>

#include "import/Thumbnail.h"
#include "tarvo/Device.h"

namespace tarvo::importing {

/// The device's own small picture, else the one in the file, else the picture itself made small,
/// where it is a JPEG of at most 16 MiB. None where there is none. Raises the Error that ends the
/// device.
std::optional<Thumbnail> previewOf(Device& device, const ObjectInfo& object);

}  // namespace tarvo::importing
