#include "simulator/ptp/SessionOperations.h"

#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kPTPVersion = 100;  // 1.00

}  // namespace

void SessionOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = SessionOperations;
  table[ptp::kGetDeviceInfo] = {kFromDevice, 0, 0, calling(this, &Self::getDeviceInfo), false};
  table[ptp::kOpenSession] = {kNone, 1, 1, calling(this, &Self::openSession), false};
  table[ptp::kCloseSession] = {kNone, 0, 0, calling(this, &Self::closeSession)};
  table[ptp::kGetStorageIDs] = {kFromDevice, 0, 0, calling(this, &Self::getStorageIDs)};
  table[ptp::kGetStorageInfo] = {kFromDevice, 1, 1, calling(this, &Self::getStorageInfo)};
  table[ptp::kFormatStore] = {kNone, 1, 2, calling(this, &Self::formatStore)};
  table[ptp::kResetDevice] = {kNone, 0, 0, calling(this, &Self::resetDevice)};
  table[ptp::kSelfTest] = {kNone, 0, 1, calling(this, &Self::selfTest)};
  table[ptp::kPowerDown] = {kNone, 0, 0, calling(this, &Self::powerDown)};
}

PTPReply SessionOperations::getDeviceInfo(const PTPRequest&) {
  if (state_.description.habits.sessionBeforeDeviceInfo && state_.session == 0)
    return refuse(kSessionNotOpen);
  const auto& info = state_.description.info;
  std::vector<std::uint16_t> operations;
  for (const auto& [code, operation] : offered_)
    operations.push_back(code);
  // A list in the description may hold codes that this device does not know; it is told as it is.
  if (info.operations) operations = *info.operations;
  std::vector<std::uint16_t> properties;
  for (const auto& each : state_.description.properties)
    properties.push_back(each.code);
  ByteWriter writer;
  writer.u16(kPTPVersion);
  writer.u32(info.vendorExtensionID);
  writer.u16(info.vendorExtensionVersion);  // 100 is 1.00
  writer.text(info.vendorExtensionDescription);
  writer.u16(info.functionalMode);
  writer.u16Array(operations);
  writer.u16Array(info.events);
  writer.u16Array(properties);
  writer.u16Array(info.captureFormats);
  writer.u16Array(info.imageFormats);
  writer.text(info.manufacturer);
  writer.text(info.model);
  writer.text(info.version);
  writer.text(info.serial);
  writer.raw(Bytes(info.bytesBehind));
  return reply(writer);
}

PTPReply SessionOperations::openSession(const PTPRequest& request) {
  // ISO 15740: the response to a second one carries the id of the open session.
  if (state_.session != 0) {
    auto already = refuse(kSessionAlreadyOpen);
    already.parameters = {state_.session};
    return already;
  }
  if (request.parameters[0] == 0) {
    auto wrong = refuse(kInvalidParameter);
    wrong.complaints = {"a session id of 0"};
    return wrong;
  }
  state_.session = request.parameters[0];
  return {};
}

PTPReply SessionOperations::closeSession(const PTPRequest&) {
  state_.forgetSession();
  return {};
}

PTPReply SessionOperations::getStorageIDs(const PTPRequest&) {
  std::vector<std::uint32_t> ids;
  for (const auto& each : state_.objects.stores())
    ids.push_back(each.description.id);
  ByteWriter writer;
  writer.u32Array(ids);
  return reply(writer);
}

PTPReply SessionOperations::getStorageInfo(const PTPRequest& request) {
  const auto* found = state_.objects.store(request.parameters[0]);
  if (found == nullptr) return refuse(kInvalidStorageID);
  const auto& store = found->description;
  if (store.isEmptySlot) return refuse(kStoreNotAvailable);
  ByteWriter writer;
  writer.u16(store.removable ? 0x0004 : 0x0003);  // removable or fixed RAM
  writer.u16(0x0003);                             // DCF file system
  writer.u16(static_cast<std::uint16_t>(store.access));
  writer.u64(store.capacity);
  writer.u64(found->free);
  writer.u32(0xFFFFFFFF);  // the number of images that fit is not told
  writer.text(store.description);
  writer.text(store.label);
  return reply(writer);
}

PTPReply SessionOperations::formatStore(const PTPRequest& request) {
  const auto* found = state_.objects.store(request.parameters[0]);
  if (found == nullptr) return refuse(kInvalidStorageID);
  if (found->description.access != StoreAccess::kReadWrite) return refuse(kStoreReadOnly);
  state_.objects.format(request.parameters[0]);
  return {};
}

// The response still belongs to the session that ends with it.
PTPReply SessionOperations::resetDevice(const PTPRequest&) {
  state_.forgetSession();
  return {};
}

// Type 0 is the default test, 1 to 0x7FFF are reserved, and vendors' own lie above (ISO 15740).
PTPReply SessionOperations::selfTest(const PTPRequest& request) {
  return request.parameters[0] == 0 ? PTPReply{} : refuse(kInvalidParameter);
}

PTPReply SessionOperations::powerDown(const PTPRequest&) {
  PTPReply done;
  done.powersDown = true;
  return done;
}

}  // namespace tarvo::simulator
