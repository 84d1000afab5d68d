#include "tools/orders/OrderPictures.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FileNames.h"
#include "tools/access/LocalFiles.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

/// A folder's name is shown in file managers; a subject may have any length.
constexpr std::size_t kLongestSubject = 100;
constexpr const char* kNote = "order.json";

/// What tells an order from all others, whatever its number and whichever of its pictures are
/// fulfilled. An order of a marker file has nothing but its picture and what is to be done with it.
PropertyDictionary identityOf(PropertyDictionary json) {
  const bool hasHandle = json.contains("XTPTPObjectHandleKey");
  json.erase("number");
  json.erase("pictures");
  if (!hasHandle) return json;
  for (const char* key : {"XTOrderAssetListKey", "XTOrderAssetHandlesListKey",
                          "XTPrintAssetsRemainingKey", "recipientsWithoutContact"})
    json.erase(key);
  return json;
}

/// What an earlier run noted in a folder; null where it has no note.
PropertyDictionary notedIn(const ToolContext& context, const fs::path& folder) {
  try {
    auto json = jsonFromText(readInputText(context, (folder / kNote).string()));
    if (json.is_object()) return json;
  } catch (const std::exception&) {
    // Whatever it is, it is no note: the folder is left alone.
  }
  return {};
}

/// The file that a note has for a picture; empty where it has none.
std::string fileNoted(const PropertyDictionary& note, const PropertyDictionary& picture) {
  const auto* pictures = arrayForKey(note, "pictures");
  for (const auto& each : pictures ? *pictures : PropertyDictionary::array()) {
    const auto file = textForKey(each, "file");
    const bool isSame = int32ForKey(each, "handle") == int32ForKey(picture, "handle") &&
                        textForKey(each, "name") == textForKey(picture, "name");
    if (file && isSame) return fs::path(*file).filename().string();
  }
  return {};
}

bool isFileOfSize(const fs::path& path, std::uint64_t size) {
  std::error_code error;
  return fs::is_regular_file(path, error) && fs::file_size(path, error) == size && !error;
}

/// "2 email - Holiday": number, kind and subject, fit to be a folder's name. Where that is another
/// order's, a number follows.
std::string folderNameOf(const Order& order) {
  std::string name = std::to_string(order.number()) + " " + order.kind();
  std::string subject = printable(order.subject()).substr(0, kLongestSubject);
  // A slash would be a folder of its own.
  std::ranges::replace(subject, '/', '-');
  if (!subject.empty()) name += " - " + validUTF8(subject);
  return safeFileName(name).value_or(std::to_string(order.number()));
}

class OrderPictures {
 public:
  OrderPictures(ToolContext& context, Device& device, Batch& batch, std::string target,
                std::size_t count)
      : context_(context),
        device_(device),
        batch_(batch),
        target_(std::move(target)),
        progress_(context.output, context.interrupt, count) {}

  /// Writes beside the pictures what the order says, with the file of each picture (order.json).
  /// The folder is the order's own: one that says another order is left alone.
  void fetch(const Order& order) {
    noted_ = PropertyDictionary::parse(order.json());
    const std::string folder = folderFor(order);
    for (auto& picture : noted_["pictures"])
      if (const auto file = fileNoted(before_, picture); !file.empty()) picture["file"] = file;
    note(order, folder);
    for (std::size_t index = 0; index < order.pictures().size(); ++index) {
      if (!batch_.goesOn()) return;
      fetchOne(order, index, folder);
    }
  }

 private:
  std::string folderFor(const Order& order) {
    const std::string name = folderNameOf(order);
    for (unsigned number = 1;; ++number) {
      const fs::path folder = fs::path(target_) / numberedFileName(name, number);
      before_ = notedIn(context_, folder);
      std::error_code ignored;
      const bool isFree = before_.is_null() && !fs::exists(fs::symlink_status(folder, ignored));
      const bool isOwn = before_.is_object() && identityOf(before_) == identityOf(noted_);
      if ((isFree || isOwn) && folders_.insert(folder).second)
        return resolvedTarget(folder.string() + "/", false).folder;
    }
  }

  void note(const Order& order, const std::string& folder) {
    const std::string text =
        noted_.dump(2, ' ', false, PropertyDictionary::error_handler_t::replace) + "\n";
    const auto made =
        writeWhole({.folder = folder, .name = kNote, .existing = ExistingFile::kOverwrite},
                   std::as_bytes(std::span(text)));
    if (made.status != status::kOK)
      batch_.failed({{"order", order.number()}},
                    Failure{.object = made.path, .status = made.status, .why = made.why});
  }

  void fetchOne(const Order& order, std::size_t index, const std::string& folder) {
    const auto& picture = order.pictures()[index];
    PropertyDictionary json = {{"order", order.number()}, {"name", validUTF8(picture.name())}};
    batch_.attempt(json, picture.name(), [&] {
      const auto handle = handleOf(picture);
      if (!handle) {
        progress_.pass();
        batch_.failed(json, Failure{.object = order.description() + ", " + picture.name(),
                                    .status = status::kFileNotFound,
                                    .why = "the picture is no longer on the device",
                                    .advice = "Delete the order, or mark it anew on the device."});
        return;
      }
      json["handle"] = *handle;
      batch_.attempt(json, picture.name() + " (" + handleText(*handle) + ")", [&] {
        fetchObject(device_.object(*handle), json, order, noted_["pictures"][index], folder);
      });
    });
  }

  void fetchObject(const ObjectInfo& object, PropertyDictionary json, const Order& order,
                   PropertyDictionary& noted, const std::string& folder) {
    if (isFileOfSize(fs::path(folder) / textForKey(noted, "file").value_or(""), object.size())) {
      batch_.skipped();
      progress_.pass();
      return;
    }
    const auto file = device_.download(object, DownloadOptions()
                                                   .folder(folder)
                                                   .existing(Existing::kKeepBoth)
                                                   .begin([this](const ObjectInfo& each) {
                                                     progress_.begin(each.name(), each.size());
                                                   })
                                                   .progress(progress_.callback()));
    progress_.end();
    noted["file"] = fs::path(file.path()).filename().string();
    note(order, folder);
    json["path"] = file.path();
    json["size"] = file.size();
    batch_.succeeded(json, file.path(), file.size());
  }

  /// The handle of a picture that is known by its name alone, by the first object of that name.
  std::optional<std::uint32_t> handleOf(const OrderPicture& picture) {
    if (picture.handle() != 0) return picture.handle();
    if (!names_) names_ = pictureHandles(device_);
    const auto found = names_->find(picture.name());
    if (found == names_->end()) return std::nullopt;
    if (found->second.size() > 1)
      context_.output.message(
          std::to_string(found->second.size()) + " pictures are called " + picture.name() +
          ", and the order does not tell which one it means; " + "the first one is taken.");
    return found->second.front();
  }

  ToolContext& context_;
  Device& device_;
  Batch& batch_;
  std::string target_;
  Progress progress_;
  std::set<std::string> folders_;  ///< of this run
  PropertyDictionary before_;      ///< what the folder's order.json said
  PropertyDictionary noted_;       ///< what it says now
  /// Handles by name; none until a marker file asked for one.
  std::optional<std::map<std::string, std::vector<std::uint32_t>>> names_;
};

}  // namespace

void fetchOrderPictures(
    ToolContext& context, Device& device, Batch& batch, const std::vector<const Order*>& orders,
    const std::string& folder,
    const std::function<bool(const Order& order, std::uint64_t failures)>& then) {
  std::size_t count = 0;
  for (const Order* order : orders)
    count += order->pictures().size();
  OrderPictures pictures(context, device, batch, folder, count);
  for (const Order* order : orders) {
    const auto failures = batch.failures();
    if (!batch.goesOn()) break;
    pictures.fetch(*order);
    if (!then(*order, failures)) break;
  }
}

}  // namespace tarvo::tools
