#include "tools/access/UnreadEntries.h"

#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo::tools {

std::string inWords(const UnreadEntry& entry) {
  const std::string object = entry.handle == 0 ? "" : " " + handleText(entry.handle);
  return entry.what + object + " cannot be read: " + entry.why;
}

Failure failureOf(const OpenedDevice& device, const UnreadEntry& entry) {
  const bool isOfBook =
      entry.what == "contact" || entry.what == "group" || entry.what == "address-book file";
  const std::string remover = isOfBook ? "addressbook delete" : "orders delete";
  return {.operation = device.operation(),
          .why = inWords(entry),
          .advice = entry.handle == 0 ? "Try again."
                                      : "Try again; 'tarvoctl " + remover + " " +
                                            handleText(entry.handle) + "' removes it."};
}

PropertyDictionary asJSON(const UnreadEntry& entry) {
  PropertyDictionary json = {{"unread", entry.what}};
  if (entry.handle != 0) json["handle"] = entry.handle;
  return json;
}

std::string whyUnread(const OpenedDevice& device, Status status) {
  if (status == status::kPTPIncompleteTransfer) return "it was cut short, or is too large";
  return statusWithHex(device.explained(status == status::kOK ? status::kPTPGeneralError : status));
}

ObjectHandles listedHandles(const OpenedDevice& device, std::uint16_t format, const char* what,
                            std::vector<UnreadEntry>& unread) {
  ObjectHandles handles;
  std::string why;
  try {
    const Status status = ObjectListing(device.transactions()).handles({.format = format}, handles);
    if (status != status::kOK && device.isLost(status)) device.failWithout(what);
    if (status != status::kOK) why = whyUnread(device, status);
  } catch (const Exception& exception) {
    why = exception.reason();
  }
  if (!why.empty()) unread.push_back({.what = what, .why = why});
  return handles;
}

std::optional<XTPTPDataSet> dataSetOf(const OpenedDevice& device, const char* what,
                                      std::uint32_t handle, std::uint16_t format,
                                      std::vector<UnreadEntry>& unread) {
  auto dataSet = device.transactions().getDataSet(handle, format);
  if (dataSet) return dataSet;
  const Status outcome = device.transactions().lastOutcome();
  if (device.isLost(outcome)) device.failWithout(what + (" " + handleText(handle)));
  unread.push_back({what, handle, whyUnread(device, outcome)});
  return std::nullopt;
}

}  // namespace tarvo::tools
