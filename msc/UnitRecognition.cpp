#include "msc/UnitRecognition.h"

#include <algorithm>
#include <string_view>

#include "NativeServices/Logging.h"
#include "Utilities/Exception.h"

namespace tarvo {

namespace {

constexpr std::string_view kMakerName = "Tarvo";
constexpr std::int64_t kLargestVendorID = 0xFFFF;

const PropertyDictionary* valueUnder(const PropertyDictionary& dictionary, const char* key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &*found;
}

std::optional<std::string> characteristic(const PropertyDictionary& properties,
                                          std::string_view name) {
  const auto* characteristics = valueUnder(properties, "Device Characteristics");
  return characteristics ? textForKey(*characteristics, name) : std::nullopt;
}

char inLowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// A name that the maker's begins with is the maker's, the empty one too; a longer one never is.
/// Intended: units cut their vendor name.
bool isPrefixOfMakerName(std::string_view vendor) {
  return vendor.size() <= kMakerName.size() &&
         std::ranges::equal(vendor, kMakerName.substr(0, vendor.size()), {}, inLowerCase,
                            inLowerCase);
}

}  // namespace

std::optional<std::vector<std::uint8_t>> guidOfUnit(const PropertyDictionary& properties) {
  const auto* guid = valueUnder(properties, "SCSITaskUserClient GUID");
  if (!guid || !guid->is_binary()) return std::nullopt;
  return guid->get_binary();
}

bool isConnectedByUSB(const PropertyDictionary& properties) {
  const auto* protocol = valueUnder(properties, "Protocol Characteristics");
  return protocol && textForKey(*protocol, "Physical Interconnect") == "USB";
}

std::optional<std::string> productNameOfUnit(const PropertyDictionary& properties) {
  return characteristic(properties, "Product Name");
}

bool isMakersUnit(const PropertyDictionary& properties, std::uint16_t usbVendorID) {
  if (!properties.contains("Device Characteristics")) return false;
  const auto vendor = characteristic(properties, "Vendor Name");
  TraceLog::trace("Detected device vendor ='%s' model='%s'", vendor.value_or("(null)").c_str(),
                  productNameOfUnit(properties).value_or("(null)").c_str());
  const auto* vendorID = valueUnder(properties, "idVendor");
  if (!vendorID) return isPrefixOfMakerName(vendor.value_or(""));
  const bool isNumber =
      vendorID->is_number_integer() && *vendorID >= 0 && *vendorID <= kLargestVendorID;
  if (!isNumber) raiseAssertion("VID is not the expected number type");
  return *vendorID == usbVendorID;
}

}  // namespace tarvo
