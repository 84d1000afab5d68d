#include "tarvo/Vendor.h"

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "platform/files/FileNames.h"
#include "platform/foundation/KeyFile.h"

namespace tarvo {

using namespace library;

namespace {

/// A response code of ISO 15740: DeleteObject has deleted some of what it was asked to.
constexpr Status kPTPPartialDeletion = 0x2012;
/// A request is a page of text and pictures; no device has room for more.
constexpr std::size_t kLargestRequest = 1U << 20;
/// The property that holds the collection id; a device without it keeps a file.
constexpr std::uint16_t kDefaultCollectionID = 0xD204;
constexpr const char* kSettingsFile = "NETCONF.XML";

/// What is sent by its path is read again below, after what it replaces was deleted.
void requireReadable(const std::string& path) {
  std::string why;
  if (readWholeFile(path, kMostBytesOfTextFile, &why)) return;
  raise({.object = path,
         .status = errno == ENOENT ? status::kFileNotFound : status::kIOError,
         .why = why,
         .advice = "Check the name."});
}

ObjectHandles favouritesOf(const OpenedDevice& camera) {
  if (!camera.device().capabilities().deviceSupportsBragbooks)
    raise(camera.failure(camera.device().name(), status::kPTPInvalidObjectFormatCode,
                         "it keeps no favourites"));
  const bool hasNewer =
      containsCode(camera.transactions().facts().imageFormats, ptp::XTD_BRAGBOOK2);
  return camera.objectHandles({.format = hasNewer ? ptp::XTD_BRAGBOOK2 : ptp::XTD_BRAGBOOK},
                              "the favourites");
}

/// Whether the device has answered that there is no such thing, which is no failure.
bool saysNone(Status outcome) {
  return isGood(outcome) || outcome == status::kPTPInvalidObjectFormatCode;
}

/// None where the device has none. Raises where it cannot be asked, with `why`.
std::optional<std::string> collectionIDOf(const OpenedDevice& camera, const std::string& why = {}) {
  auto id = camera.device().defaultCollectionID();
  camera.session().endIfInterrupted();
  if (id) return id;
  const Status outcome = camera.transactions().lastOutcome();
  const auto facts = camera.transactions().facts();
  // The file that would hold it is read in pieces.
  // On a device with neither, an empty answer would say that there is none, which nobody knows.
  const bool canTell = containsCode(facts.properties, kDefaultCollectionID) ||
                       containsCode(facts.operations, ptp::kGetPartialObject);
  if (canTell && saysNone(outcome)) return std::nullopt;
  raise(camera.failure("the collection id", canTell ? outcome : status::kPTPOperationNotSupported,
                       why));
}

/// Raises unless there are none.
void requireNoSettings(const OpenedDevice& camera, Status outcome) {
  if (!saysNone(outcome)) raise(camera.failure(kSettingsFile, outcome));
  // An object whose information cannot be read may be what was looked for.
  for (const std::uint32_t handle :
       camera.objectHandles({.format = ptp::XTD_WIRELESS_CONFIG}, kSettingsFile)) {
    const auto [info, status, why] = readInfo(camera.transactions(), handle);
    if (!info) raise(camera.failure(handleText(handle), status, why));
  }
}

}  // namespace

std::vector<std::uint32_t> VendorExtension::albums() {
  return asked(state_, "albums", [](OpenedDevice& camera) {
    return camera.objectHandles({.format = ptp::XTD_ALBUM}, "the albums");
  });
}

std::vector<std::uint32_t> VendorExtension::favourites() {
  return asked(state_, "favourites", [](OpenedDevice& camera) { return favouritesOf(camera); });
}

std::size_t VendorExtension::deleteFavourites() {
  return asked(state_, "deleteFavourites", [](OpenedDevice& camera) {
    const std::size_t before = favouritesOf(camera).size();
    if (before == 0) return before;
    camera.require(camera.device().deleteBragbookFiles());
    // Counted once more, since a device may say OK and leave some.
    const std::size_t after = favouritesOf(camera).size();
    const std::size_t deleted = before - std::min(before, after);
    if (after > 0)
      raise(camera.failure(camera.device().name(), kPTPPartialDeletion,
                           std::to_string(deleted) + (deleted == 1 ? " favourite" : " favourites") +
                               " deleted, " + std::to_string(after) + " left"));
    return deleted;
  });
}

std::optional<std::vector<std::byte>> VendorExtension::albumNames() {
  return asked(
      state_, "albumNames", [](OpenedDevice& camera) -> std::optional<std::vector<std::byte>> {
        const std::string what = "the album names";
        const auto files = camera.objectHandles({.format = ptp::XTD_ALBUM_NAMES_FILE}, what);
        if (files.empty()) return std::nullopt;
        for (const std::uint32_t handle : files)
          if (const auto bytes = camera.device().downloadObject(ObjectReference(handle)))
            return std::vector<std::byte>(bytes->begin(), bytes->end());
        // The device lists one, so that it is a failure and no answer.
        camera.failWithout(what);
      });
}

void VendorExtension::setAlbumNames(const std::string& path) {
  asked(state_, "setAlbumNames", [&](OpenedDevice& camera) {
    // By its ending the device knows what a file is, and the old names go first.
    if (lowerCaseExtension(path) != "lcb")
      raise({.object = path,
             .status = status::kFileTypeNotFound,
             .why = "a file of album names ends in .lcb",
             .advice = "Rename it; nothing was sent."});
    requireReadable(path);
    const Status status = camera.device().setAlbumNames(path);
    if (isGood(status)) return;
    camera.session().endIfInterrupted();
    raise(camera.failure(path, status,
                         "the device may have no album names now, as the old file is deleted "
                         "before the new one is sent"));
  });
}

std::optional<std::string> VendorExtension::collectionID() {
  return asked(state_, "collectionID", [](OpenedDevice& camera) { return collectionIDOf(camera); });
}

std::optional<std::string> VendorExtension::setCollectionID(const std::optional<std::string>& id) {
  return asked(state_, "setCollectionID", [&](OpenedDevice& camera) {
    if (id && !isCollectionID(*id)) refuse("it is no collection id", *id);
    camera.require(camera.device().setDefaultCollectionID(id), id.value_or(""));
    return collectionIDOf(camera, "it was set, but cannot be read back");
  });
}

bool VendorExtension::isCollectionID(std::string_view text) {
  constexpr std::string_view kShape = "00000000-0000-0000-0000-000000000000";
  return std::ranges::equal(text, kShape, [](unsigned char letter, char expected) {
    return expected == '-' ? letter == '-' : std::isxdigit(letter) != 0;
  });
}

void VendorExtension::sendShoebox(const std::string& path) {
  asked(state_, "sendShoebox", [&](OpenedDevice& camera) {
    std::uint32_t handle = 0;
    camera.require(camera.device().sendShoeboxPTP(path, &handle), path);
  });
}

void VendorExtension::addToShoebox(const std::string& path) {
  asked(state_, "addToShoebox", [&](OpenedDevice& camera) {
    camera.require(camera.device().addImageToShoebox(path), path);
  });
}

std::optional<std::vector<std::byte>> VendorExtension::wirelessSettings() {
  return asked(state_, "wirelessSettings",
               [](OpenedDevice& camera) -> std::optional<std::vector<std::byte>> {
                 const auto data = camera.device().wirelessConfigData();
                 camera.session().endIfInterrupted();
                 if (data) return std::vector<std::byte>(data->begin(), data->end());
                 requireNoSettings(camera, camera.transactions().lastOutcome());
                 return std::nullopt;
               });
}

void VendorExtension::display(std::span<const std::byte> request) {
  asked(state_, "display", [&](OpenedDevice& camera) {
    if (request.empty() || request.size() > kLargestRequest)
      raise({.status = status::kBadParameter,
             .why = request.empty() ? "it is empty" : "it is larger than 1 MB"});
    if (!camera.device().supportsCameraBackDisplay())
      raise(camera.failure(camera.device().name(), status::kPTPOperationNotSupported,
                           "it shows nothing that a computer sends"));
    auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
    dataSet.appendBytes(request.data(), static_cast<std::uint32_t>(request.size()));
    camera.require(camera.transactions().displayRequest(dataSet));
  });
}

void VendorExtension::query(const std::string& sql,
                            const std::function<bool(std::string_view rows)>& onRows) {
  asked(state_, "query", [&](OpenedDevice& camera) {
    // The operation on the rows: to read them.
    constexpr std::uint32_t kSelect = 0;
    constexpr std::uint32_t kBytesOfOneTransaction = 64 * 1024;
    auto& device = camera.transactions();
    std::uint32_t query = 0;
    camera.require(device.sendQuery(sql, &query), sql);
    const AtEnd letGo([&] {
      try {
        // A device that does not hear it has forgotten the query as well.
        (void)device.endQuery(query, kSelect);
      } catch (...) {  // NOLINT(bugprone-empty-catch): nothing is left to be done for it
      }
    });
    bool isLast = false;
    for (ByteBuffer rows; !isLast; rows.clear()) {
      camera.require(
          device.getDBRowsFromQuery(query, kSelect, kBytesOfOneTransaction, rows, isLast), sql);
      // A device that gives nothing and promises more would never come to an end.
      if (rows.empty()) isLast = true;
      if (!onRows({reinterpret_cast<const char*>(rows.data()), rows.size()})) return;
    }
  });
}

}  // namespace tarvo
