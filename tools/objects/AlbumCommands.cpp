// albums and favourites: what a device keeps about its pictures, beside them.
#include <glib.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct AlbumFileOptions {
  std::string file{};
  bool overwrite = false;  ///< of this computer's file
  bool yes = false;        ///< does not ask
};

struct FavouritesDeleteOptions {
  bool yes = false;
};

namespace fs = std::filesystem;

/// A response code of ISO 15740: DeleteObject has deleted some of what it was asked to.
constexpr Status kPTPPartialDeletion = 0x2012;
/// The header of an LCB block, whose last byte counts the records.
constexpr std::size_t kLCBCount = 31;

/// The device's file of album names; none where it has none. Raises a ToolError on failure.
std::optional<std::vector<std::byte>> albumNamesOf(const ToolContext& context,
                                                   const OpenedDevice& device) {
  auto& ptpDevice = device.ptpDevice();
  if (device.objectHandles(ptp::XTD_ALBUM_NAMES_FILE, "the album names").empty())
    return std::nullopt;
  const auto path = ptpDevice.albumNames();
  // The device lists one, so that it is a failure and no answer.
  if (!path) device.failWithout("the album names");
  auto content = readInput(context, device.operation(), *path);
  // In a folder of its own, which goes with it: names of people's albums are not left behind.
  removeTemporaryFile(*path);
  return content;
}

[[noreturn]] void failWithoutNames(const OpenedDevice& device) {
  throw ToolError({.operation = device.operation(),
                   .object = device.device().name(),
                   .status = status::kFileNotFound,
                   .why = "it keeps no file of album names",
                   .advice = "'tarvoctl albums put' sends one."});
}

bool isText(const std::vector<std::byte>& content) {
  return g_utf8_validate(reinterpret_cast<const char*>(content.data()),
                         static_cast<gssize>(content.size()), nullptr) != 0;
}

void showText(Output& output, const std::vector<std::byte>& content) {
  std::istringstream lines(
      std::string(reinterpret_cast<const char*>(content.data()), content.size()));
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    output.line(line);
  }
}

/// Every object of a format, a row each.
/// Not by 'ls': albums and favourites are records of the vendor's, which no folder holds.
int listObjects(ToolContext& context, const OpenedDevice& device, std::uint16_t format,
                const std::string& what) {
  Listing listing(context.output, {{"HANDLE"}, {"SIZE", 0, true}, {"DATE"}, {"NAME"}},
                  Listing::kWhole);
  int exitCode = kDone;
  std::size_t count = 0;
  for (const std::uint32_t handle : device.objectHandles(format, what)) {
    endIfInterrupted(context, device.operation());
    const auto [info, status, why] = readInfo(device.transactions(), handle);
    ++count;
    if (!info) {
      exitCode = kFailed;
      listing.addFailure({{"handle", handle}}, device.failure(handleText(handle), status, why));
      // The next question would only cost another time-out.
      if (device.isLost(status)) break;
      continue;
    }
    listing.add({{"handle", handle},
                 {"name", validUTF8(info->fileName())},
                 {"size", info->compressedSize()}},
                {handleText(handle), sizeInWords(info->compressedSize()),
                 dateInWords(info->captureDateStr()), info->fileName()});
  }
  listing.finish();
  if (count == 0) context.output.message("There are none.");
  return exitCode;
}

std::uint16_t favouritesFormat(const OpenedDevice& device) {
  const bool hasNewer =
      containsCode(device.transactions().facts().imageFormats, ptp::XTD_BRAGBOOK2);
  return hasNewer ? ptp::XTD_BRAGBOOK2 : ptp::XTD_BRAGBOOK;
}

void requireFavourites(const OpenedDevice& device) {
  if (device.device().capabilities().deviceSupportsBragbooks) return;
  throw ToolError(device.failure(device.device().name(), status::kPTPInvalidObjectFormatCode,
                                 "it keeps no favourites"));
}

/// By its ending the device knows what a file is, and the old names go first.
void refuseOtherFiles(const std::string& operation, const std::string& path) {
  std::string ending = fs::path(path).extension().string();
  std::ranges::transform(ending, ending.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  if (ending == ".lcb") return;
  throw ToolError({.operation = operation,
                   .object = path,
                   .status = status::kFileTypeNotFound,
                   .why = "a file of album names ends in .lcb",
                   .advice = "Rename it; nothing was sent."});
}

/// The albums of the device, an object each.
int runAlbumsList(ToolContext& context) {
  const OpenedDevice device(context, "albums list");
  return listObjects(context, device, ptp::XTD_ALBUM, "the albums");
}

/// What the device's file of album names holds.
int runAlbumsShow(ToolContext& context) {
  const OpenedDevice device(context, "albums show");
  const auto content = albumNamesOf(context, device);
  endIfInterrupted(context, device.operation());
  if (!content) failWithoutNames(device);
  const bool isBlock = isValidLCB(*content);
  if (context.output.isJSON()) {
    PropertyDictionary json = {{"size", content->size()}, {"isValidLCB", isBlock}};
    if (isBlock) json["records"] = static_cast<unsigned>((*content)[kLCBCount]);
    if (isText(*content))
      json["text"] = std::string(reinterpret_cast<const char*>(content->data()), content->size());
    context.output.document(json);
  } else if (isBlock) {
    context.output.line("A block of " +
                        counted(static_cast<std::size_t>((*content)[kLCBCount]), "records") + ", " +
                        sizeInWords(content->size()) + ", whole and sound.");
  } else if (isText(*content)) {
    showText(context.output, *content);
  } else {
    context.output.line(sizeInWords(content->size()) + ", neither text nor a sound block.");
  }
  return kDone;
}

/// That file as a file here.
int runAlbumsGet(ToolContext& context, const AlbumFileOptions& options) {
  const OpenedDevice device(context, "albums get");
  // Before the device is asked: a folder that is not there ends the command at once.
  const auto target = resolvedTarget(device.operation(), options.file, true);
  const auto content = albumNamesOf(context, device);
  endIfInterrupted(context, device.operation());
  if (!content) failWithoutNames(device);
  const auto made =
      writeWhole({.folder = target.folder,
                  .name = target.name.value_or("albums.lcb"),
                  .existing = options.overwrite ? ExistingFile::kOverwrite : ExistingFile::kRefuse},
                 *content);
  if (made.status != status::kOK)
    throw ToolError({.operation = device.operation(),
                     .object = made.path,
                     .status = made.status,
                     .why = made.why,
                     .advice = made.status == status::kDuplicateFile ? "Use --overwrite." : ""});
  if (context.output.isJSON()) {
    context.output.document({{"path", validUTF8(made.path)}, {"size", content->size()}});
  } else {
    context.output.line(made.path);
  }
  return kDone;
}

/// A file in its place. Keeps the old one.
int runAlbumsPut(ToolContext& context, const AlbumFileOptions& options) {
  const std::string operation = "albums put";
  refuseOtherFiles(operation, options.file);
  const Consent consent(context, operation, options.yes, "replace the album names");
  const auto content = readInput(context, operation, options.file);
  // Said and sent all the same: a device may know another form.
  if (!isValidLCB(content))
    context.output.message("Note: " + options.file +
                           " is no sound block of records; the device may not read it.");
  const OpenedDevice device(context, operation);
  // Read before anything is deleted; a device that cannot give it is not changed.
  const auto former = albumNamesOf(context, device);
  endIfInterrupted(context, operation);
  consent.require("Replace the album names of " + device.device().name() + "?",
                  "nothing was changed");
  std::string backup;
  if (former) {
    backup = keepFile(device, Kept::kBackup, "albums", "lcb", *former);
    context.output.message("The old file is kept in " + backup + ".");
  }
  const Status status = device.ptpDevice().setAlbumNames(options.file);
  // Operations end with 0 or with the response itself.
  if (status != status::kOK && status != status::kPTPOK) {
    endIfInterrupted(context, operation);
    auto failure = device.failure(options.file, status,
                                  "the device may have no album names now, as the old file is "
                                  "deleted before the new one is sent");
    if (!backup.empty()) failure.advice = "'tarvoctl albums put " + backup + "' puts them back.";
    throw ToolError(failure);
  }
  if (context.output.isJSON()) {
    PropertyDictionary json = {{"file", validUTF8(options.file)}, {"size", content.size()}};
    if (!backup.empty()) json["backup"] = validUTF8(backup);
    context.output.document(json);
  } else {
    context.output.line(options.file);
  }
  return kDone;
}

/// The pictures that are marked as favourites.
int runFavouritesList(ToolContext& context) {
  const OpenedDevice device(context, "favourites list");
  requireFavourites(device);
  return listObjects(context, device, favouritesFormat(device), "the favourites");
}

/// Deletes all of them.
int runFavouritesDelete(ToolContext& context, const FavouritesDeleteOptions& options) {
  const Consent consent(context, "favourites delete", options.yes, "delete favourites");
  const OpenedDevice device(context, "favourites delete");
  requireFavourites(device);
  const auto countNow = [&] {
    return device.objectHandles(favouritesFormat(device), "the favourites").size();
  };
  const std::size_t before = countNow();
  if (before == 0) context.output.message("There are none.");
  if (before > 0)
    consent.require(
        "Delete " + counted(before, "favourites") + " from " + device.device().name() + "?",
        "nothing was deleted");
  device.require(before == 0 ? status::kOK : device.device().deleteBragbookFiles());
  // Counted once more, since a device may say OK and leave some (protected ones, say).
  const std::size_t after = before == 0 ? 0 : countNow();
  const std::string done = counted(before - std::min(before, after), "favourites deleted");
  if (after > 0)
    throw ToolError(device.failure(device.device().name(), kPTPPartialDeletion,
                                   done + ", " + std::to_string(after) + " left"));
  if (context.output.isJSON()) {
    context.output.document({{"deleted", before}, {"left", after}});
  } else if (before > 0) {
    context.output.line(done + ".");
  }
  return kDone;
}

}  // namespace

void addAlbumCommands(CommandGroup& root) {
  auto albums = root.group("albums", "Albums and their names", "tarvoctl albums show");
  albums.command("list", "Every album on the device", "tarvoctl albums list", runAlbumsList);
  albums.command("show", "What the file of album names holds", "tarvoctl albums show",
                 runAlbumsShow);
  const auto options = std::make_shared<AlbumFileOptions>();
  albums
      .command("get", "Fetch that file", "tarvoctl albums get albums.lcb",
               [options](ToolContext& context) { return runAlbumsGet(context, *options); })
      .operand("FILE", options->file, "Its name here")
      .required()
      .flag("--overwrite", options->overwrite, "Replace a file that is there");
  albums
      .command("put", "Send a file in its place", "tarvoctl albums put albums.lcb --yes",
               [options](ToolContext& context) { return runAlbumsPut(context, *options); })
      .operand("FILE", options->file, "A file whose name ends in .lcb")
      .required()
      .flag("--yes", options->yes, "Do not ask")
      .more("The old one is kept here.");
  auto favourites = root.group("favourites", "Pictures that are marked as favourites",
                               "tarvoctl favourites list");
  favourites.command("list", "Every favourite", "tarvoctl favourites list", runFavouritesList);
  const auto remove = std::make_shared<FavouritesDeleteOptions>();
  favourites
      .command("delete", "Delete all of them", "tarvoctl favourites delete --yes",
               [remove](ToolContext& context) { return runFavouritesDelete(context, *remove); })
      .flag("--yes", remove->yes, "Do not ask");
}

}  // namespace tarvo::tools
