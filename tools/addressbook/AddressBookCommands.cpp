// addressbook: the e-mail addresses that a device keeps, and the groups of them.
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/LocalFiles.h"
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

/// The names of the groups of each contact, by its place.
std::map<std::size_t, std::vector<std::string>> groupsOf(const std::vector<BookGroup>& all) {
  std::map<std::size_t, std::vector<std::string>> groups;
  for (const auto& group : all)
    for (const std::size_t member : group.members())
      groups[member].push_back(group.name());
  return groups;
}

void showBook(Output& output, const ContactBook& book) {
  const auto contacts = book.contacts();
  const auto groups = book.groups();
  const auto groupNames = groupsOf(groups);
  const bool hasGroups = book.supportsGroups() || !groups.empty();
  std::vector<Column> columns = {{"NICKNAME"}, {"E-MAIL"}, {"NAME"}};
  if (hasGroups) columns.push_back({"GROUPS"});
  Listing listing(output, columns, Listing::kWhole);
  for (std::size_t index = 0; index < contacts.size(); ++index) {
    const auto& contact = contacts[index];
    std::string name = contact.firstName();
    if (!contact.lastName().empty()) name += (name.empty() ? "" : " ") + contact.lastName();
    std::vector<std::string> cells = {contact.nickname(), contact.email(), name};
    const auto found = groupNames.find(index);
    if (hasGroups) cells.push_back(found == groupNames.end() ? "" : joined(found->second));
    listing.add({}, std::move(cells));
  }
  listing.finish();
  if (!contacts.empty()) output.line("");
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Contacts", ofLimit(contacts.size(), book.mostContacts())}};
  if (hasGroups) {
    fields.emplace_back("Groups", ofLimit(groups.size(), book.mostGroups()) + ", each of " +
                                      limitText(book.mostMembers()) + " contacts");
    // Also those that have no members, which no contact tells of.
    for (const auto& group : groups)
      fields.emplace_back("Group",
                          group.name() + " (" + std::to_string(group.members().size()) + ")");
  }
  fields.emplace_back(
      "Lengths", "e-mail " + std::to_string(book.longestEmail()) + ", nickname " +
                     std::to_string(book.longestNickname()) +
                     (hasGroups ? ", group name " + std::to_string(book.longestGroupName()) : ""));
  showFields(output, fields);
}

PropertyDictionary faultAsJSON(const BookFault& fault) {
  PropertyDictionary json = {{"ptpErrorCode", fault.code()}, {"message", fault.message()}};
  if (fault.object()) json["errorObject"] = validUTF8(*fault.object());
  return json;
}

/// The first fault stands in the document itself, too.
PropertyDictionary validityAsJSON(const std::vector<BookFault>& faults) {
  if (faults.empty()) return {{"valid", true}, {"ptpErrorCode", status::kOK}};
  PropertyDictionary json = faultAsJSON(faults.front());
  json["valid"] = false;
  for (const auto& fault : faults)
    json["faults"].push_back(faultAsJSON(fault));
  return json;
}

/// What the device, which has the book `there`, says of another.
int sayValidity(ToolContext& context, Device& device, const ContactBook& there,
                const ContactBook& book) {
  const auto faults = findBookFaults(device, there, book);
  if (context.output.isJSON()) context.output.document(validityAsJSON(faults));
  for (const auto& fault : faults)
    context.output.line("Not valid: " + fault.message() + ".");
  if (faults.empty())
    context.output.line("Valid: " + counted(book.contacts().size(), "contacts") + ", " +
                        counted(book.groups().size(), "groups") + ".");
  return faults.empty() ? kDone : kFailed;
}

/// The book of the device, as it stands there.
ContactBook readBook(const ToolContext& context, Device& device) {
  auto book = readAddressBook(device);
  endIfInterrupted(context, context.operation);
  return book;
}

void writeExport(const ToolContext& context, const BookExportOptions& options,
                 const std::string& text) {
  const auto target = resolvedTarget(context.operation, options.file, true);
  if (!target.name)
    throw ToolError({.operation = context.operation,
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
  throw ToolError({.operation = context.operation,
                   .object = options.file,
                   .status = made.status,
                   .why = made.why,
                   .advice = isThere ? "Use --overwrite, or another name." : ""});
}

/// Contacts, groups and limits. The exit status tells whether all could be read.
int runAddressBookShow(ToolContext& context) {
  Device device = openCamera(context);
  // Shown with its gaps: to see what is there is the first step to mending it.
  const auto book = readBook(context, device);
  if (context.output.isJSON()) {
    auto json = PropertyDictionary::parse(book.json());
    // A key that no import takes: this is no whole book.
    for (const auto& entry : book.unread())
      json["unread"].push_back(asJSON(failureOf(context, entry)));
    context.output.document(json);
  } else {
    showBook(context.output, book);
  }
  for (const auto& entry : book.unread())
    context.output.objectError(failureOf(context, entry));
  return book.unread().empty() ? kDone : kFailed;
}

/// Whether the device would take the file, or, without one, whether its own book is valid. 1 when
/// it is not.
int runAddressBookValidate(ToolContext& context, const BookFileOptions& options) {
  // The file first: what is wrong with it needs no device.
  std::optional<BookFile> file;
  if (!options.file.empty())
    file = readBookFile(context, context.operation, options.file,
                        bookFormat(options.format, options.file));
  Device device = openCamera(context);
  const auto there = readBook(context, device);
  if (!file) refuseGaps(context, device, there, "");
  return sayValidity(context, device, there, file ? file->book : there);
}

/// The device's book into a file, or to standard output.
int runAddressBookExport(ToolContext& context, const BookExportOptions& options) {
  const auto format = bookFormat(options.format, options.file);
  Device device = openCamera(context);
  const auto book = readBook(context, device);
  refuseGaps(context, device, book, "; nothing was written");
  const std::string text = bookFileText(context.operation, book, format);
  if (options.file.empty() || options.file == "-") {
    context.output.text(text);
    return kDone;
  }
  writeExport(context, options, text);
  context.output.result({{"path", validUTF8(options.file)},
                         {"contacts", book.contacts().size()},
                         {"groups", book.groups().size()}},
                        options.file);
  return kDone;
}

/// Makes the device's book that of the file. Says what changes and how, asks, keeps what the device
/// held, and says what was written where that ends early.
int runAddressBookImport(ToolContext& context, const BookImportOptions& options) {
  const auto format = bookFormat(options.format, options.file);
  // Before the file and the device, which cost time.
  const Consent consent(context, context.operation, options.yes || options.dryRun,
                        "change the address book, or --dry-run");
  const auto file = readBookFile(context, context.operation, options.file, format);
  Device device = openCamera(context);
  return importBook(context, device, file, options, consent);
}

/// The device's book in the user's editor, as JSON, and back.
int runAddressBookEdit(ToolContext& context, const BookEditOptions& options) {
  const Consent consent(context, context.operation, options.yes, "change the address book");
  std::optional<BookEditor> editor;
  {
    // The device is let go while the user edits.
    Device device = openCamera(context);
    const auto there = readBook(context, device);
    refuseGaps(context, device, there, "");
    editor.emplace(context.operation, device.facts().serial(),
                   bookFileText(context.operation, there, BookFormat::kJSON));
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
  const auto file = readBookFile(context, context.operation, editor->path(), BookFormat::kJSON);
  Device device = openCamera(context);
  const int exitCode = importBook(context, device, file, {}, consent);
  if (exitCode == kDone) editor->discard();
  return exitCode;
}

/// An entry of the device's book, of whatever kind.
struct StoredEntry {
  std::uint32_t handle = 0;
  BookEntryKind kind = BookEntryKind::kContact;
  const char* what = "";

  std::string inWords() const { return what + (" " + handleText(handle)); }
};

constexpr StoredEntry kEntryKinds[] = {{.kind = BookEntryKind::kContact, .what = "contact"},
                                       {.kind = BookEntryKind::kGroup, .what = "group"},
                                       {.kind = BookEntryKind::kFile, .what = "address-book file"}};

/// The entries that `texts` name. Raises a ToolError for what is none.
std::vector<StoredEntry> entriesNamed(const ToolContext& context, Device& device,
                                      const std::vector<std::string>& texts) {
  std::map<std::uint32_t, StoredEntry> there;
  for (const auto& [none, kind, what] : kEntryKinds) {
    for (const std::uint32_t handle : bookEntries(device, kind))
      there[handle] = {.handle = handle, .kind = kind, .what = what};
  }
  std::vector<StoredEntry> named;
  for (const auto& text : texts) {
    const auto found = there.find(numberArgument(context.operation, "handle", text));
    if (found == there.end())
      throw ToolError({.operation = context.operation,
                       .object = text,
                       .status = status::kFileNotFound,
                       .why = "the address book has no such entry",
                       .advice = "'tarvoctl addressbook show --json' shows the handles."});
    named.push_back(found->second);
  }
  return named;
}

void deleteEntry(ToolContext& context, Batch& batch, Device& device, const StoredEntry& entry) {
  const std::string object = entry.inWords();
  PropertyDictionary json = {{"handle", entry.handle}};
  batch.attempt(json, object, [&] {
    // The backup first: nothing goes of which no copy lies on the disk.
    removeBookEntry(device, entry.kind, entry.handle, [&](std::span<const std::byte> bytes) {
      const auto backup =
          keepFile(context.operation, device.facts().serial(), Kept::kBackup, "addressbook",
                   entry.kind == BookEntryKind::kFile ? "abk" : "bin", bytes);
      context.output.message("What the device holds of it is kept in " + backup + ".");
      json["backup"] = validUTF8(backup);
    });
    batch.succeeded(json, object);
  });
}

/// Deletes contacts, groups and address-book files by their handles, also such as cannot be read;
/// keeps what the device holds of them.
int runAddressBookDelete(ToolContext& context, const BookDeleteOptions& options) {
  const Consent consent(context, context.operation, options.yes, "delete entries");
  Device device = openCamera(context);
  const auto entries = entriesNamed(context, device, options.entries);
  std::vector<std::string> words;
  words.reserve(entries.size());
  for (const auto& entry : entries)
    words.push_back(entry.inWords());
  consent.require("Delete " + joined(words) + " from " + device.facts().name() + "?",
                  "nothing was deleted");
  Batch batch(context, "entries deleted");
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
      .more("Tells of every entry which rule of the device it breaks; the exit status is 1 then.");
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
      .flag("--skip-invalid", imported->skipInvalid, "Leave out what the device cannot keep")
      .flag("--shorten", imported->shorten, "Cut names that are too long for the device")
      .flag("--dry-run", imported->dryRun, "Say what would change, and send nothing")
      .flag("--sync", imported->sync, "Only synchronise, which sends no contacts")
      .flag("--yes", imported->yes, "Do not ask")
      .more(
          "What changes is said first, and what the device held is kept before anything is\n"
          "sent. --merge removes neither entries nor fields nor members of groups. Somebody whom\n"
          "--skip-invalid leaves out stays on the device as the device has them. --sync\n"
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
