// addressbook: the e-mail addresses that a device keeps, and the groups of them.
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/Batch.h"
#include "tools/access/DeviceBook.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/addressbook/BookFile.h"
#include "tools/addressbook/BookImport.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct BookExportOptions : BookFileOptions {
  bool overwrite = false;
};

struct BookEditOptions {
  bool yes = false;
};

struct BookDeleteOptions {
  std::vector<std::string> entries{};  ///< handles
  bool yes = false;
};

constexpr std::uint32_t kUnlimited = 0xFFFFFFFF;

std::string limitText(std::uint32_t limit) {
  return limit == kUnlimited ? "any number of" : "at most " + std::to_string(limit);
}

std::string ofLimit(std::size_t count, std::uint32_t limit) {
  return std::to_string(count) + " (the device takes " +
         (limit == kUnlimited ? "any number" : std::to_string(limit)) + ")";
}

/// The names of the groups of each contact.
std::map<const Contact*, std::vector<std::string>> groupsOf(const AddressBook& book) {
  std::map<const Contact*, std::vector<std::string>> groups;
  for (const auto& group : *book.groups)
    for (const auto& member : group->members)
      groups[member.get()].push_back(group->name);
  return groups;
}

void showBook(Output& output, const AddressBook& book) {
  const auto groups = groupsOf(book);
  const bool hasGroups = book.supportsGroups || !book.groups->empty();
  std::vector<Column> columns = {{"NICKNAME"}, {"E-MAIL"}, {"NAME"}};
  if (hasGroups) columns.push_back({"GROUPS"});
  Listing listing(output, columns, Listing::kWhole);
  for (const auto& contact : *book.contacts) {
    std::string name = contact->firstName;
    if (!contact->lastName.empty()) name += (name.empty() ? "" : " ") + contact->lastName;
    std::vector<std::string> cells = {contact->nickname.value_or(""), contact->email.value_or(""),
                                      name};
    const auto found = groups.find(contact.get());
    if (hasGroups) cells.push_back(found == groups.end() ? "" : joined(found->second));
    listing.add({}, std::move(cells));
  }
  listing.finish();
  if (!book.contacts->empty()) output.line("");
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Contacts", ofLimit(book.contacts->size(), book.limits.maxAddresses)}};
  if (hasGroups) {
    fields.emplace_back("Groups", ofLimit(book.groups->size(), book.limits.maxGroups) +
                                      ", each of " + limitText(book.limits.maxAddressesPerGroup) +
                                      " contacts");
    // Also those that have no members, which no contact tells of.
    for (const auto& group : *book.groups)
      fields.emplace_back("Group",
                          group->name + " (" + std::to_string(group->members.size()) + ")");
  }
  fields.emplace_back(
      "Lengths",
      "e-mail " + std::to_string(book.limits.maxAddressLengthInBytes) + ", nickname " +
          std::to_string(book.limits.maxNicknameLengthInBytes) +
          (hasGroups ? ", group name " + std::to_string(book.limits.maxGroupNameLengthInBytes)
                     : ""));
  showFields(output, fields);
}

/// A book that lacks anybody would be taken for all of it.
/// An export is read as the whole book, by people and by 'import'.
void refuseGaps(const OpenedDevice& device, const DeviceBook& there, const char* outcome) {
  if (there.unread.empty()) return;
  auto failure = failureOf(device, there.unread.front());
  failure.object = device.device().name();
  failure.why += outcome;
  throw ToolError(failure);
}

/// What the device says of a book.
int sayValidity(ToolContext& context, const OpenedDevice& device, const AddressBook& book) {
  const auto error = device.device().validateAddressBookDict(book);
  if (context.output.isJSON()) {
    context.output.document(validityAsJSON(error, book));
  } else if (error) {
    context.output.line("Not valid: " + inWords(*error, book) + ".");
  } else {
    context.output.line("Valid: " + counted(book.contacts->size(), "contacts") + ", " +
                        counted(book.groups->size(), "groups") + ".");
  }
  return error ? kFailed : kDone;
}

void writeExport(const OpenedDevice& device, const BookExportOptions& options,
                 const std::string& text) {
  const auto target = resolvedTarget(device.operation(), options.file, true);
  if (!target.name)
    throw ToolError({.operation = device.operation(),
                     .object = options.file,
                     .status = status::kNotAFile,
                     .why = "it is a folder",
                     .advice = "Give the file a name."});
  const auto made =
      writeWhole({.folder = target.folder,
                  .name = target.name,
                  .existing = options.overwrite ? ExistingFile::kOverwrite : ExistingFile::kRefuse},
                 std::as_bytes(std::span(text)));
  if (made.status == status::kOK) return;
  const bool isThere = made.status == status::kDuplicateFile;
  throw ToolError({.operation = device.operation(),
                   .object = options.file,
                   .status = made.status,
                   .why = made.why,
                   .advice = isThere ? "Use --overwrite, or another name." : ""});
}

/// Contacts, groups and limits. The exit status tells whether all could be read.
int runAddressBookShow(ToolContext& context) {
  const OpenedDevice device(context, "addressbook show");
  // Shown with its gaps: to see what is there is the first step to mending it.
  const auto [book, unread] = readDeviceBook(context, device);
  endIfInterrupted(context, device.operation());
  if (context.output.isJSON()) {
    auto json = jsonFromAddressBook(book);
    // A key that no import takes: this is no whole book.
    for (const auto& entry : unread)
      json["unread"].push_back(asJSON(failureOf(device, entry)));
    context.output.document(json);
  } else {
    showBook(context.output, book);
  }
  for (const auto& entry : unread)
    context.output.objectError(failureOf(device, entry));
  return unread.empty() ? kDone : kFailed;
}

/// Whether the device would take the file, or, without one, whether its own book is valid. 1 when
/// it is not.
int runAddressBookValidate(ToolContext& context, const BookFileOptions& options) {
  const std::string operation = "addressbook validate";
  // The file first: what is wrong with it needs no device.
  std::optional<BookFile> file;
  if (!options.file.empty())
    file = readBookFile(context, operation, options.file, bookFormat(options.format, options.file));
  const OpenedDevice device(context, operation);
  auto there = readDeviceBook(context, device);
  endIfInterrupted(context, operation);
  if (!file) {
    refuseGaps(device, there, "");
    return sayValidity(context, device, there.book);
  }
  // The limits of the device that is there, whatever the file's own were.
  file->book.limits = there.book.limits;
  if (!file->book.contacts) file->book.contacts.emplace();
  if (!file->book.groups) file->book.groups.emplace();
  return sayValidity(context, device, file->book);
}

/// The device's book into a file, or to standard output.
int runAddressBookExport(ToolContext& context, const BookExportOptions& options) {
  const std::string operation = "addressbook export";
  const auto format = bookFormat(options.format, options.file);
  const OpenedDevice device(context, operation);
  const auto there = readDeviceBook(context, device);
  endIfInterrupted(context, operation);
  refuseGaps(device, there, "; nothing was written");
  const auto& book = there.book;
  const std::string text = bookFileText(operation, book, format);
  if (options.file.empty() || options.file == "-") {
    context.output.text(text);
    return kDone;
  }
  writeExport(device, options, text);
  if (context.output.isJSON()) {
    context.output.document({{"path", validUTF8(options.file)},
                             {"contacts", book.contacts->size()},
                             {"groups", book.groups->size()}});
  } else {
    context.output.line(options.file);
  }
  return kDone;
}

/// Makes the device's book that of the file. Says what changes and how, asks, keeps what the device
/// held, and says what was written where that ends early.
int runAddressBookImport(ToolContext& context, const BookImportOptions& options) {
  const std::string operation = "addressbook import";
  const auto format = bookFormat(options.format, options.file);
  // Before the file and the device, which cost time.
  const Consent consent(context, operation, options.yes || options.dryRun,
                        "change the address book, or --dry-run");
  const auto file = readBookFile(context, operation, options.file, format);
  const OpenedDevice device(context, operation);
  return importBook(context, device, file, options, consent);
}

/// The device's book in the user's editor, as JSON, and back.
int runAddressBookEdit(ToolContext& context, const BookEditOptions& options) {
  const std::string operation = "addressbook edit";
  const Consent consent(context, operation, options.yes, "change the address book");
  std::optional<BookEditor> editor;
  {
    // The device is let go while the user edits.
    const OpenedDevice device(context, operation);
    const auto there = readDeviceBook(context, device);
    endIfInterrupted(context, operation);
    refuseGaps(device, there, "");
    editor.emplace(device, bookFileText(operation, there.book, BookFormat::kJSON));
  }
  editor->run();
  if (editor->isUnchanged()) {
    editor->discard();
    context.output.message("Nothing was changed.");
    if (context.output.isJSON()) context.output.document({{"written", false}});
    return kDone;
  }
  // What was typed outlives every failure from here on.
  context.output.message("Your text is in " + editor->path() + " until it has been sent.");
  const auto file = readBookFile(context, operation, editor->path(), BookFormat::kJSON);
  const OpenedDevice device(context, operation);
  const int exitCode = importBook(context, device, file, {}, consent);
  if (exitCode == kDone) editor->discard();
  return exitCode;
}

/// An entry of the device's book, of whatever kind: as it stands there, for the backup, and how it
/// goes.
struct StoredEntry {
  std::uint32_t handle = 0;
  std::uint16_t format = 0;
  const char* what = "";
};

constexpr StoredEntry kEntryKinds[] = {
    {.format = ptp::XTD_CONTACT, .what = "contact"},
    {.format = ptp::XTD_GROUP, .what = "group"},
    {.format = ptp::XTD_ADDRESS_BOOK_FILE, .what = "address-book file"}};

/// The entries that `texts` name. Raises a ToolError for what is none.
std::vector<StoredEntry> entriesNamed(const OpenedDevice& device,
                                      const std::vector<std::string>& texts) {
  std::map<std::uint32_t, StoredEntry> there;
  for (const auto& kind : kEntryKinds) {
    for (const std::uint32_t handle : device.objectHandles(kind.format, "the address book"))
      there[handle] = {.handle = handle, .format = kind.format, .what = kind.what};
  }
  std::vector<StoredEntry> named;
  for (const auto& text : texts) {
    const auto found = there.find(numberArgument(device.operation(), "handle", text));
    if (found == there.end())
      throw ToolError({.operation = device.operation(),
                       .object = text,
                       .status = status::kFileNotFound,
                       .why = "the address book has no such entry",
                       .advice = "'tarvoctl addressbook show --json' shows the handles."});
    named.push_back(found->second);
  }
  return named;
}

/// What a device has of an entry, whatever it is worth; nothing where it cannot be had.
ByteBuffer bytesOf(const OpenedDevice& device, const StoredEntry& entry) {
  if (entry.format == ptp::XTD_ADDRESS_BOOK_FILE)
    return device.device().downloadObject(ObjectReference(entry.handle)).value_or(ByteBuffer());
  // Bytes, since this is for entries that cannot be read as records.
  const auto dataSet = device.transactions().getDataSet(entry.handle, entry.format);
  if (!dataSet) return {};
  const auto bytes = dataSet->bytes().first(
      std::min<std::size_t>(dataSet->length(), device.transactions().lastReceived()));
  return {bytes.begin(), bytes.end()};
}

void deleteEntry(ToolContext& context, Batch& batch, const OpenedDevice& device,
                 const StoredEntry& entry) {
  const std::string object = entry.what + (" " + handleText(entry.handle));
  PropertyDictionary json = {{"handle", entry.handle}};
  batch.attempt(device, json, object, [&] {
    // The backup first: nothing goes of which no copy lies on the disk.
    const auto bytes = bytesOf(device, entry);
    if (device.transactions().lastOutcome() == status::kObjectTooLarge)
      return batch.failed(device, json, object, status::kObjectTooLarge);
    const bool isFile = entry.format == ptp::XTD_ADDRESS_BOOK_FILE;
    const auto backup =
        keepFile(device, Kept::kBackup, "addressbook", isFile ? "abk" : "bin", bytes);
    context.output.message("What the device holds of it is kept in " + backup + ".");
    json["backup"] = validUTF8(backup);
    const Status status = isFile ? device.device().deleteObject(ObjectReference(entry.handle))
                                 : device.device().deleteVendorObjectPTP(entry.handle);
    if (status == status::kOK || status == status::kPTPOK) {
      batch.succeeded(json, object);
    } else {
      batch.failed(device, json, object, status);
    }
  });
}

/// Deletes contacts, groups and address-book files by their handles, also such as cannot be read;
/// keeps what the device holds of them.
int runAddressBookDelete(ToolContext& context, const BookDeleteOptions& options) {
  const std::string operation = "addressbook delete";
  const Consent consent(context, operation, options.yes, "delete entries");
  const OpenedDevice device(context, operation);
  const auto entries = entriesNamed(device, options.entries);
  std::vector<std::string> words;
  for (const auto& entry : entries)
    words.push_back(entry.what + (" " + handleText(entry.handle)));
  consent.require("Delete " + joined(words) + " from " + device.device().name() + "?",
                  "nothing was deleted");
  Batch batch(context, operation, "entries deleted");
  for (const auto& entry : entries) {
    if (!batch.goesOn()) break;
    deleteEntry(context, batch, device, entry);
  }
  return batch.finish();
}

CommandOptions& addFormat(CommandOptions&& command, BookFileOptions& options) {
  return command
      .option("--format", options.format, "FORMAT",
              "json or vcard; by the file's ending (.vcf, .vcard)")
      .oneOf({"json", "vcard"});
}

void addReading(CommandGroup& group) {
  group.command("show", "Contacts, groups, and what the device takes", "tarvoctl addressbook show",
                runAddressBookShow);
  const auto validate = std::make_shared<BookFileOptions>();
  addFormat(group.command("validate", "Whether the device's book, or a file, is valid",
                          "tarvoctl addressbook validate",
                          [validate](ToolContext& context) {
                            return runAddressBookValidate(context, *validate);
                          }),
            *validate)
      .operand("FILE", validate->file, "'-' is standard input")
      .more("Tells which entry breaks which rule of the device; the exit status is 1 then.");
  const auto exported = std::make_shared<BookExportOptions>();
  addFormat(group.command("export", "The book as a file", "tarvoctl addressbook export",
                          [exported](ToolContext& context) {
                            return runAddressBookExport(context, *exported);
                          }),
            *exported)
      .operand("FILE", exported->file, "Without it to standard output")
      .flag("--overwrite", exported->overwrite, "Replace a file that is there")
      .more("JSON holds all of it.");
}

void addChanging(CommandGroup& group) {
  const auto imported = std::make_shared<BookImportOptions>();
  addFormat(group.command("import", "Make the device's book that of a file",
                          "tarvoctl addressbook import contacts.vcf --merge --yes",
                          [imported](ToolContext& context) {
                            return runAddressBookImport(context, *imported);
                          }),
            *imported)
      .operand("FILE", imported->file, "'-' is standard input")
      .required()
      .flag("--merge", imported->merge, "Remove nothing that only the device has")
      .flag("--dry-run", imported->dryRun, "Say what would change, and send nothing")
      .flag("--sync", imported->sync, "Only synchronise, which sends no contacts")
      .flag("--yes", imported->yes, "Do not ask")
      .more(
          "What changes is said first, and what the device held is kept before anything is\n"
          "sent. --merge removes neither entries nor fields nor members of groups. --sync\n"
          "does as other software of the maker: it sends groups alone, or, to a device that\n"
          "keeps a file, an empty one.");
  const auto edit = std::make_shared<BookEditOptions>();
  group
      .command("edit", "Change the book in your editor", "tarvoctl addressbook edit",
               [edit](ToolContext& context) { return runAddressBookEdit(context, *edit); })
      .flag("--yes", edit->yes, "Do not ask")
      .more("It is edited as JSON, and goes back as by 'addressbook import'.");
  const auto remove = std::make_shared<BookDeleteOptions>();
  group
      .command("delete", "Delete entries, also such as cannot be read",
               "tarvoctl addressbook delete 0x0001000c --yes",
               [remove](ToolContext& context) { return runAddressBookDelete(context, *remove); })
      .operand("HANDLE", remove->entries, "Handles (0x...)")
      .required()
      .flag("--yes", remove->yes, "Do not ask")
      .more(
          "Contacts, groups or address-book files. What the device holds of them is kept\n"
          "first.");
}

}  // namespace

void addAddressBookCommands(CommandGroup& root) {
  auto group = root.group("addressbook", "The e-mail addresses that the device keeps",
                          "tarvoctl addressbook show");
  addReading(group);
  addChanging(group);
}

}  // namespace tarvo::tools
