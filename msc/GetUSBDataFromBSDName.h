// The USB device that a disk belongs to.
#pragma once

#include <string>

#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// "locationID", "idVendor" and "idProduct" of the nearest USB device above the disk `bsdName`
/// ("sdb1"); an empty object, with a trace that says why, where there is none. Main thread only.
///
///   const auto location = int32ForKey(GetUSBDataFromBSDName("sdb1"), "locationID");
PropertyDictionary GetUSBDataFromBSDName(const std::string& bsdName);

}  // namespace tarvo
