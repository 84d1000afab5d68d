// The properties of a PTP device, as bytes (ISO 15740, "Device Properties").
#include "NativeServices/PictureDevice/devices/PassThroughTransaction.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

// Enough for a text of full length with its choices; what is longer is cut, and raises when read.
constexpr std::size_t kPropertyRoom = 2048;

}  // namespace

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::propertyDataSet(std::uint16_t property) {
  return propertyBytes(property, ptp::kGetDevicePropDesc, "propertyDataSet");
}

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::propertyValueDataSet(std::uint16_t property) {
  return propertyBytes(property, ptp::kGetDevicePropValue, "propertyValueDataSet");
}

std::optional<XTPTPDataSet> XTImageCapturePTPDevice::propertyBytes(std::uint16_t property,
                                                                   std::uint16_t operation,
                                                                   const char* method) {
  // Not asked on the chance: some devices do not survive a property that they do not know.
  if (!containsCode(propertyList_, property)) return std::nullopt;
  // The failures of both operations are traced under one name, which is intended.
  PassThroughTransaction transaction(
      {.method = method,
       .headerFailure = formatted("propertyDataSet GetDevicePropInfo %04X", property),
       .resultFailure = "propertyDataSet GetDevicePropInfo",
       .operation = operation,
       .parameters = {property},
       .dataUsageMode = kDataFromDevice,
       .room = kPropertyRoom});
  if (!run(transaction)) return std::nullopt;
  // A copy of what was received, so that it outlives the record and a cut one is noticed.
  auto dataSet = XTPTPDataSet::initWithData(transaction.received());
  dataSet.setByteOrder(kPTPByteOrder);
  return dataSet;
}

Status XTImageCapturePTPDevice::setProperty(std::uint16_t property,
                                            std::span<const std::byte> value) {
  // A value is small, so it may be copied for its padding.
  const auto padded = dataAdjustedToAvoidModulo64PayloadSize({value.begin(), value.end()});
  // The reason names another operation, which is intended.
  PassThroughTransaction transaction({.method = "setProperty",
                                      .headerFailure = "setProperty SetDevicePropValue",
                                      .operation = ptp::kSetDevicePropValue,
                                      .parameters = {property},
                                      .dataUsageMode = kDataToDevice,
                                      .data = padded,
                                      .mallocFailure = "malloc failed in getDataSet."});
  run(transaction);
  return transaction.outcome();
}

}  // namespace tarvo
