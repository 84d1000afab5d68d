// albums and favourites: what a device keeps about its pictures, beside them.
#include <glib.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FileNames.h"
#include "tarvo/Vendor.h"
#include "tools/access/Devices.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct AlbumsGetOptions {
  std::string file{};
  bool overwrite = false;
};

struct AlbumsPutOptions {
  std::string file{};
  bool yes = false;  ///< does not ask
};

struct FavouritesDeleteOptions {
  bool yes = false;
};

/// The header of an LCB block, whose last byte counts the records.
constexpr std::size_t kLCBCount = 31;

std::vector<std::byte> requiredNames(Device& device) {
  auto names = VendorExtension(device).albumNames();
  if (names) return *std::move(names);
  throw ToolError({.object = device.facts().name(),
                   .status = status::kFileNotFound,
                   .why = "it keeps no file of album names",
                   .advice = "'tarvoctl albums put' sends one."});
}

/// Its content where that is text.
std::optional<std::string> textOf(const std::vector<std::byte>& content) {
  std::string text(reinterpret_cast<const char*>(content.data()), content.size());
  const bool isText = g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != 0;
  return isText ? std::optional(std::move(text)) : std::nullopt;
}

/// A row each. Not by 'ls': albums and favourites are records of the vendor's, which no folder
/// holds.
template <std::vector<std::uint32_t> (VendorExtension::*handles)()>
int listObjects(ToolContext& context) {
  Device device = openCamera(context);
  Listing listing(context.output, {{"HANDLE"}, {"SIZE", 0, true}, {"DATE"}, {"NAME"}});
  for (const std::uint32_t handle : (VendorExtension(device).*handles)()) {
    endIfInterrupted(context);
    try {
      const ObjectInfo object = device.object(handle);
      listing.add({{"handle", handle}, {"name", validUTF8(object.name())}, {"size", object.size()}},
                  {handleText(handle), sizeInWords(object.size()),
                   dateInWords(object.captureDate()), object.name()});
    } catch (const Error& error) {
      if (!addFailure(context, listing, {{"handle", handle}}, error)) break;
    }
  }
  return listing.finish("There are none.");
}

/// By its ending the device knows what a file is.
void refuseOtherFiles(const std::string& path) {
  if (lowerCaseExtension(path) == "lcb") return;
  throw ToolError({.object = path,
                   .status = status::kFileTypeNotFound,
                   .why = "a file of album names ends in .lcb",
                   .advice = "Rename it; nothing was sent."});
}

void runAlbumsShow(ToolContext& context) {
  Device device = openCamera(context);
  const auto content = requiredNames(device);
  const bool isBlock = isValidLCB(content);
  const auto text = textOf(content);
  if (context.output.isJSON()) {
    PropertyDictionary json = {{"size", content.size()}, {"isValidLCB", isBlock}};
    if (isBlock) json["records"] = static_cast<unsigned>(content[kLCBCount]);
    if (text) json["text"] = *text;
    context.output.document(json);
  } else if (isBlock) {
    context.output.line("A block of " +
                        counted(static_cast<std::size_t>(content[kLCBCount]), "records") + ", " +
                        sizeInWords(content.size()) + ", whole and sound.");
  } else if (text) {
    context.output.lines(*text);
  } else {
    context.output.line(sizeInWords(content.size()) + ", neither text nor a sound block.");
  }
}

void runAlbumsGet(ToolContext& context, const AlbumsGetOptions& options) {
  Device device = openCamera(context);
  // Before the device is asked: a folder that is not there ends the command at once.
  const auto target = resolvedTarget(options.file, true);
  const auto content = requiredNames(device);
  const auto made =
      writeWhole({.folder = target.folder,
                  .name = target.name.value_or("albums.lcb"),
                  .existing = options.overwrite ? ExistingFile::kOverwrite : ExistingFile::kRefuse},
                 content);
  if (made.status != status::kOK)
    throw ToolError({.object = made.path,
                     .status = made.status,
                     .why = made.why,
                     .advice = made.status == status::kDuplicateFile ? "Use --overwrite." : ""});
  context.output.result({{"path", validUTF8(made.path)}, {"size", content.size()}}, made.path);
}

void runAlbumsPut(ToolContext& context, const AlbumsPutOptions& options) {
  refuseOtherFiles(options.file);
  const Consent consent(context, options.yes, "replace the album names");
  const auto content = readInput(context, options.file);
  // Said and sent all the same: a device may know another form.
  if (!isValidLCB(content))
    context.output.message("Note: " + options.file +
                           " is no sound block of records; the device may not read it.");
  Device device = openCamera(context);
  const DeviceFacts facts = device.facts();
  VendorExtension extension(device);
  // Read before anything is deleted; a device that cannot give it is not changed.
  const auto former = extension.albumNames();
  consent.require("Replace the album names of " + facts.name() + "?", "nothing was changed");
  std::string backup;
  if (former) {
    backup = keepFile(facts.serial(), Kept::kBackup, "albums", "lcb", *former);
    context.output.message("The old file is kept in " + backup + ".");
  }
  try {
    extension.setAlbumNames(options.file);
  } catch (const Error& error) {
    endIfInterrupted(context);
    auto failure = failureOf(error);
    if (!backup.empty()) failure.advice = "'tarvoctl albums put " + backup + "' puts them back.";
    throw ToolError(failure);
  }
  PropertyDictionary json = {{"file", validUTF8(options.file)}, {"size", content.size()}};
  if (!backup.empty()) json["backup"] = validUTF8(backup);
  context.output.result(json, options.file);
}

void runFavouritesDelete(ToolContext& context, const FavouritesDeleteOptions& options) {
  const Consent consent(context, options.yes, "delete favourites");
  Device device = openCamera(context);
  VendorExtension extension(device);
  std::size_t deleted = 0;
  if (const std::size_t count = extension.favourites().size(); count > 0) {
    consent.require(
        "Delete " + counted(count, "favourites") + " from " + device.facts().name() + "?",
        "nothing was deleted");
    deleted = extension.deleteFavourites();
    context.output.line(counted(deleted, "favourites deleted") + ".");
  } else {
    context.output.message("There are none.");
  }
  if (context.output.isJSON()) context.output.document({{"deleted", deleted}, {"left", 0}});
}

}  // namespace

void addAlbumCommands(CommandGroup& root) {
  auto albums = root.group("albums", "Albums and their names", "tarvoctl albums show");
  albums.command("list", "Every album on the device", "tarvoctl albums list",
                 listObjects<&VendorExtension::albums>);
  albums.command("show", "What the file of album names holds", "tarvoctl albums show",
                 runAlbumsShow);
  auto [get, fetched] =
      albums.command("get", "Fetch that file", "tarvoctl albums get albums.lcb", runAlbumsGet);
  get.required("FILE", fetched.file, "Its name here")
      .flag("--overwrite", fetched.overwrite, "Replace a file that is there");
  auto [put, sent] = albums.command("put", "Send a file in its place",
                                    "tarvoctl albums put albums.lcb --yes", runAlbumsPut);
  put.required("FILE", sent.file, "A file whose name ends in .lcb")
      .flag("--yes", sent.yes, "Do not ask")
      .more("The old one is kept here.");
  auto favourites = root.group("favourites", "Pictures that are marked as favourites",
                               "tarvoctl favourites list");
  favourites.command("list", "Every favourite", "tarvoctl favourites list",
                     listObjects<&VendorExtension::favourites>);
  auto [remove, options] = favourites.command(
      "delete", "Delete all of them", "tarvoctl favourites delete --yes", runFavouritesDelete);
  remove.flag("--yes", options.yes, "Do not ask");
}

}  // namespace tarvo::tools
