// addressbook: the e-mail addresses that a device keeps, and the groups of them.
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/addressbook/BookFile.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct BookExportOptions : BookFileOptions {
  bool overwrite = false;
};

struct BookImportOptions : BookFileOptions {
  bool merge = false;        ///< what only the device has stays
  bool dryRun = false;       ///< says what would change
  bool skipInvalid = false;  ///< leaves out what the device cannot keep
  bool shorten = false;      ///< cuts what is too long for it
  bool sync = false;         ///< the library's synchronisation alone, which writes no contact
  bool yes = false;          ///< does not ask
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
  Listing listing(output, columns);
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
  Fields fields = {{"Contacts", ofLimit(contacts.size(), book.mostContacts())}};
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
  endIfInterrupted(context);
  return book;
}

void writeExport(const BookExportOptions& options, const std::string& text) {
  const auto target = resolvedTarget(options.file, true);
  if (!target.name)
    throw ToolError({.object = options.file,
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
  throw ToolError({.object = options.file,
                   .status = made.status,
                   .why = made.why,
                   .advice = isThere ? "Use --overwrite, or another name." : ""});
}

/// A book that lacks anybody would be taken for all of it. Raises a ToolError for one with gaps;
/// `outcome` stands behind its reason.
void refuseGaps(const ToolContext& context, Device& device, const ContactBook& there,
                const char* outcome, Status status = status::kOK) {
  if (there.unread().empty()) return;
  auto failure = failureOf(context, there.unread().front());
  failure.object = device.facts().name();
  failure.status = status;
  failure.why += outcome;
  throw ToolError(failure);
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
    file = readBookFile(context, options.file, bookFormat(options.format, options.file));
  Device device = openCamera(context);
  const auto there = readBook(context, device);
  if (!file) refuseGaps(context, device, there, "");
  return sayValidity(context, device, there, file ? file->book : there);
}

void runAddressBookExport(ToolContext& context, const BookExportOptions& options) {
  const auto format = bookFormat(options.format, options.file);
  Device device = openCamera(context);
  const auto book = readBook(context, device);
  refuseGaps(context, device, book, "; nothing was written");
  const std::string text = bookFileText(book, format);
  if (options.file.empty() || options.file == "-") return context.output.text(text);
  writeExport(options, text);
  context.output.result({{"path", validUTF8(options.file)},
                         {"contacts", book.contacts().size()},
                         {"groups", book.groups().size()}},
                        options.file);
}

/// A terminal holds so many lines of changes; a script reads all of them with --json.
constexpr std::size_t kShownChanges = 40;

/// One import: making a device's address book another one, with all that a user has to be told and
/// asked.
class BookImport {
 public:
  BookImport(ToolContext& context, Device& device, const BookImportOptions& options,
             const Consent& consent)
      : context_(context),
        device_(device),
        facts_(device.facts()),
        options_(options),
        consent_(consent),
        there_(readAddressBook(device)) {}

  void run(const BookFile& file) {
    refuseGaps(context_, device_, there_, "; nothing was sent", status::kPTPGeneralError);
    const BookChange change = planned(file);
    sayChanges(change);
    if (change.isEmpty() && !change.emptiesBook())
      return say(change, "The device has all of this already.", "");
    if (options_.dryRun) return say(change, "Nothing was sent.", "");
    consent_.require("Change the address book of " + facts_.name() + "?", "nothing was sent");
    // On the disk before the first byte is sent.
    const std::string backup = keepBook();
    context_.output.message("What the device holds is kept in " + backup + ".");
    write(change, backup);
    say(change,
        change.emptiesBook() ? "The device has an empty address book now."
                             : "The address book was written.",
        backup);
  }

 private:
  BookChange planned(const BookFile& file) const {
    try {
      return planAddressBook(device_, there_, file.book,
                             BookOptions()
                                 .keepsOthers(options_.merge)
                                 .isPartial(file.isPartial)
                                 .nameless(file.nameless)
                                 .skipsInvalid(options_.skipInvalid)
                                 .shortens(options_.shorten)
                                 .syncOnly(options_.sync));
    } catch (const Error& error) {
      const bool isOfEntries = error.status() != status::kAddressBookTooManyContacts &&
                               error.status() != status::kAddressBookTooManyGroups;
      if (error.kind() == ErrorKind::kMisuse && isOfEntries && !options_.skipInvalid) {
        Failure failure = failureOf(error);
        failure.advice +=
            " 'tarvoctl addressbook import' leaves such entries out with --skip-invalid, and cuts "
            "long names with --shorten.";
        throw ToolError(failure);
      }
      // Of an order that would go to somebody else.
      if (error.kind() != ErrorKind::kBusy || error.status() != status::kOK) throw;
      throw ToolError({.why = error.reason(),
                       .advice = "Nothing was sent. Fulfil the order, or delete it ('tarvoctl "
                                 "orders delete " +
                                 error.object() + "')."});
    }
  }

  void sayChanges(const BookChange& change) const {
    for (const auto& warning : change.warnings())
      context_.output.message(warning);
    const auto lines = change.lines();
    for (std::size_t index = 0; index < lines.size() && index < kShownChanges; ++index)
      context_.output.line(lines[index]);
    if (lines.size() > kShownChanges)
      context_.output.line("... and " + std::to_string(lines.size() - kShownChanges) + " more");
  }

  std::string keep(const char* extension, std::span<const std::byte> content) const {
    return keepFile(facts_.serial(), Kept::kBackup, "addressbook", extension, content);
  }

  /// The book as JSON, which 'import' reads again, whose path it gives, and the device's own files
  /// as they stand.
  std::string keepBook() const {
    for (const std::uint32_t handle : bookEntries(device_, BookEntryKind::kFile))
      keep("abk", readBookEntry(device_, BookEntryKind::kFile, handle));
    const auto text = bookFileText(there_, BookFormat::kJSON);
    return keep("json", std::as_bytes(std::span(text)));
  }

  void write(const BookChange& change, const std::string& backup) const {
    try {
      writeAddressBook(device_, change);
    } catch (const Error& error) {
      // What the user has ended says nothing of the book.
      if (error.reason().empty()) throw;
      Failure failure = failureOf(error);
      const std::string kept = "What it held before is in " + backup;
      if (failure.why.starts_with("it was written, but")) {
        failure.why += ". " + kept;
      } else {
        failure.advice = kept + "; 'tarvoctl addressbook import " + backup + "' puts that back.";
      }
      throw ToolError(failure, context_.interrupt.isSet() ? kInterrupted : kFailed);
    }
  }

  /// Without a backup nothing was written.
  void say(const BookChange& change, const std::string& message, const std::string& backup) const {
    context_.output.message(message);
    if (!context_.output.isJSON()) return;
    PropertyDictionary json = {{"changes", PropertyDictionary::parse(change.json())},
                               {"written", !backup.empty()}};
    if (!backup.empty()) json["backup"] = validUTF8(backup);
    if (!change.warnings().empty()) json["warnings"] = change.warnings();
    context_.output.document(json);
  }

  ToolContext& context_;
  Device& device_;
  DeviceFacts facts_;
  const BookImportOptions& options_;
  const Consent& consent_;
  ContactBook there_;
};

/// Makes the device's book that of the file. Says what changes and how, asks, keeps what the device
/// held, and says what was written where that ends early.
void runAddressBookImport(ToolContext& context, const BookImportOptions& options) {
  const auto format = bookFormat(options.format, options.file);
  // Before the file and the device, which cost time.
  const Consent consent(context, options.yes || options.dryRun,
                        "change the address book, or --dry-run");
  const auto file = readBookFile(context, options.file, format);
  Device device = openCamera(context);
  BookImport(context, device, options, consent).run(file);
}

/// The device's book in the user's editor, as JSON, and back.
void runAddressBookEdit(ToolContext& context, const BookEditOptions& options) {
  const Consent consent(context, options.yes, "change the address book");
  std::optional<BookEditor> editor;
  {
    // The device is let go while the user edits.
    Device device = openCamera(context);
    const auto there = readBook(context, device);
    refuseGaps(context, device, there, "");
    editor.emplace(device.facts().serial(), bookFileText(there, BookFormat::kJSON));
  }
  if (!editor->run()) {
    editor->discard();
    context.output.message("Nothing was changed.");
    if (context.output.isJSON()) context.output.document({{"written", false}});
    return;
  }
  // What was typed outlives every failure from here on.
  context.output.message("Your text is in " + editor->path() + " until it has been sent.");
  const auto file = readBookFile(context, editor->path(), BookFormat::kJSON);
  Device device = openCamera(context);
  BookImport(context, device, {}, consent).run(file);
  editor->discard();
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
std::vector<StoredEntry> entriesNamed(Device& device, const std::vector<std::string>& texts) {
  std::map<std::uint32_t, StoredEntry> there;
  for (const auto& [none, kind, what] : kEntryKinds) {
    for (const std::uint32_t handle : bookEntries(device, kind))
      there[handle] = {.handle = handle, .kind = kind, .what = what};
  }
  std::vector<StoredEntry> named;
  for (const auto& text : texts) {
    const auto handle = handleArgument(text);
    if (!handle) refuseUsage("'" + text + "' is no handle");
    const auto found = there.find(*handle);
    if (found == there.end())
      throw ToolError({.object = text,
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
      const auto backup = keepFile(device.facts().serial(), Kept::kBackup, "addressbook",
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
  const Consent consent(context, options.yes, "delete entries");
  Device device = openCamera(context);
  const auto entries = entriesNamed(device, options.entries);
  std::vector<std::string> words;
  words.reserve(entries.size());
  for (const auto& entry : entries)
    words.push_back(entry.inWords());
  consent.require("Delete " + joined(words) + " from " + device.facts().name() + "?",
                  "nothing was deleted");
  Batch batch(context, "entries deleted");
  batch.forEach(entries, [&](const auto& entry) { deleteEntry(context, batch, device, entry); });
  return batch.finish();
}

CommandOptions& addFormat(CommandOptions& command, BookFileOptions& options) {
  return command
      .option("--format", options.format, "FORMAT",
              "json or vcard; by the file's ending (.vcf, .vcard)")
      .oneOf({"json", "vcard"});
}

void addReading(CommandGroup& group) {
  group.command("show", "Contacts, groups, and what the device takes", "tarvoctl addressbook show",
                runAddressBookShow);
  auto [validate, read] =
      group.command("validate", "Whether the device's book, or a file, is valid",
                    "tarvoctl addressbook validate", runAddressBookValidate);
  addFormat(validate, read)
      .operand("FILE", read.file, "'-' is standard input")
      .more("Tells of every entry which rule of the device it breaks; the exit status is 1 then.");
  auto [save, written] = group.command("export", "The book as a file",
                                       "tarvoctl addressbook export", runAddressBookExport);
  addFormat(save, written)
      .operand("FILE", written.file, "Without it to standard output")
      .flag("--overwrite", written.overwrite, "Replace a file that is there")
      .more("JSON holds all of it.");
}

void addChanging(CommandGroup& group) {
  auto [load, how] =
      group.command("import", "Make the device's book that of a file",
                    "tarvoctl addressbook import contacts.vcf --merge --yes", runAddressBookImport);
  addFormat(load, how)
      .required("FILE", how.file, "'-' is standard input")
      .flag("--merge", how.merge, "Remove nothing that only the device has")
      .flag("--skip-invalid", how.skipInvalid, "Leave out what the device cannot keep")
      .flag("--shorten", how.shorten, "Cut names that are too long for the device")
      .flag("--dry-run", how.dryRun, "Say what would change, and send nothing")
      .flag("--sync", how.sync, "Only synchronise, which sends no contacts")
      .flag("--yes", how.yes, "Do not ask")
      .more(
          "What changes is said first, and what the device held is kept before anything is\n"
          "sent. --merge removes neither entries nor fields nor members of groups. Somebody whom\n"
          "--skip-invalid leaves out stays on the device as the device has them. --sync\n"
          "does as other software of the maker: it sends groups alone, or, to a device that\n"
          "keeps a file, an empty one.");
  auto [edit, editing] = group.command("edit", "Change the book in your editor",
                                       "tarvoctl addressbook edit", runAddressBookEdit);
  edit.flag("--yes", editing.yes, "Do not ask")
      .more("It is edited as JSON, and goes back as by 'addressbook import'.");
  auto [remove, deleted] =
      group.command("delete", "Delete entries, also such as cannot be read",
                    "tarvoctl addressbook delete 0x0001000c --yes", runAddressBookDelete);
  remove.required("HANDLE", deleted.entries, "Handles (0x...)")
      .flag("--yes", deleted.yes, "Do not ask")
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
