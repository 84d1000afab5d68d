#include "tools/OrderPictures.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/LocalFiles.h"
#include "tools/ObjectPaths.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

/// A folder's name is shown in file managers; a subject may have any length.
constexpr std::size_t kLongestSubject = 100;

}  // namespace

std::string folderNameOf(const ListedOrder& order) {
  std::string name = std::to_string(order.number) + " " + order.kind;
  std::string subject = printable(order.subject).substr(0, kLongestSubject);
  // A slash would be a folder of its own.
  std::ranges::replace(subject, '/', '-');
  if (!subject.empty()) name += " - " + validUTF8(subject);
  return safeFileName(name).value_or(std::to_string(order.number));
}

OrderPictures::OrderPictures(ToolContext& context, OpenedDevice& device, Batch& batch,
                             std::string target)
    : context_(context),
      device_(device),
      batch_(batch),
      target_(std::move(target)),
      progress_(context.output, context.interrupt, 1),
      fetch_(device.transactions()) {}

void OrderPictures::fetch(const ListedOrder& order) {
  const std::string wanted = (fs::path(target_) / folderNameOf(order)).string() + "/";
  const std::string folder = resolvedTarget(device_.operation(), wanted, false).folder;
  const std::string text = order.json.dump(2) + "\n";
  const auto note =
      writeWhole(folder, "order.json", std::as_bytes(std::span(text)), ExistingFile::kOverwrite);
  if (note.status != status::kOK)
    batch_.failed({{"order", order.number}}, {.operation = device_.operation(),
                                              .object = note.path,
                                              .status = note.status,
                                              .why = note.why});
  for (const auto& picture : order.pictures) {
    if (!batch_.goesOn()) return;
    PropertyDictionary json = {{"order", order.number}, {"name", validUTF8(picture.name)}};
    batch_.attempt(device_, json, picture.name, [&] { fetchOne(order, picture, folder); });
  }
}

void OrderPictures::fetchOne(const ListedOrder& order, const OrderedPicture& picture,
                             const std::string& folder) {
  PropertyDictionary json = {{"order", order.number}, {"name", validUTF8(picture.name)}};
  const auto handle = handleOf(picture);
  if (!handle) {
    batch_.failed(json, {.operation = device_.operation(),
                         .object = inWords(order) + ", " + picture.name,
                         .status = status::kFileNotFound,
                         .why = "the picture is no longer on the device",
                         .advice = "Delete the order, or mark it anew on the device."});
    return;
  }
  json["handle"] = *handle;
  const std::string object = picture.name + " (" + handleText(*handle) + ")";
  const auto [info, status, why] = readInfo(device_.transactions(), *handle);
  if (!info) {
    batch_.failed(device_, json, object, status, why);
    return;
  }
  const auto name = safeFileName(info->fileName());
  if (name && hasFileOfSize(folder, *name, info->compressedSize())) {
    batch_.skipped();
    return;
  }
  progress_.begin(info->fileName(), info->compressedSize());
  const auto result = fetch_.toFile(*handle, {.folder = folder,
                                              .existing = ExistingFile::kKeepBoth,
                                              .progress = progress_.callback(),
                                              .device = device_.device().serialNumber()});
  progress_.end();
  if (result.status != status::kOK) {
    batch_.failed(device_, std::move(json), object, result.status, result.why);
    return;
  }
  json["path"] = result.path;
  json["size"] = result.size;
  batch_.succeeded(json, result.path, result.size);
}

std::optional<std::uint32_t> OrderPictures::handleOf(const OrderedPicture& picture) {
  if (picture.handle != 0) return picture.handle;
  if (!names_) readNames();
  const auto found = names_->find(picture.name);
  if (found == names_->end()) return std::nullopt;
  if (found->second.size() > 1)
    context_.output.message(std::to_string(found->second.size()) + " pictures are called " +
                            picture.name + ", and the order does not tell which one it means; " +
                            "the first one is taken.");
  return found->second.front();
}

void OrderPictures::readNames() {
  names_.emplace();
  const auto handles = device_.objectHandles(0, "the objects of the device");
  for (const std::uint32_t handle : handles) {
    if (context_.interrupt.isSet()) return;
    const auto info = readInfo(device_.transactions(), handle).info;
    if (info && !isFolder(*info)) (*names_)[info->fileName()].push_back(handle);
  }
}

}  // namespace tarvo::tools
