#include "tools/addressbook/BookImport.h"

#include <string>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Devices.h"
#include "tools/access/LocalFiles.h"
#include "tools/addressbook/BookFile.h"

namespace tarvo::tools {
namespace {

/// A terminal holds so many lines of changes; a script reads all of them with --json.
constexpr std::size_t kShownChanges = 40;

/// One import.
class Importing {
 public:
  Importing(ToolContext& context, Device& device, const BookImportOptions& options,
            const Consent& consent)
      : context_(context),
        device_(device),
        facts_(device.facts()),
        options_(options),
        consent_(consent),
        there_(readAddressBook(device)) {}

  int run(const BookFile& file) {
    refuseGaps(context_, device_, there_, "; nothing was sent", status::kPTPGeneralError);
    const BookChange change = planned(file);
    sayChanges(change);
    if (change.isEmpty() && !change.emptiesBook()) {
      say(change, "The device has all of this already.", false, "");
      return kDone;
    }
    if (options_.dryRun) {
      say(change, "Nothing was sent.", false, "");
      return kDone;
    }
    consent_.require("Change the address book of " + facts_.name() + "?", "nothing was sent");
    // On the disk before the first byte is sent.
    const std::string backup = keepBook();
    context_.output.message("What the device holds is kept in " + backup + ".");
    write(change, backup);
    say(change,
        change.emptiesBook() ? "The device has an empty address book now."
                             : "The address book was written.",
        true, backup);
    return kDone;
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
        Failure failure = failureOf(context_, error);
        failure.advice +=
            " 'tarvoctl addressbook import' leaves such entries out with --skip-invalid, and cuts "
            "long names with --shorten.";
        throw ToolError(failure);
      }
      // Of an order that would go to somebody else.
      if (error.kind() != ErrorKind::kBusy || error.status() != status::kOK) throw;
      throw ToolError({.operation = context_.operation,
                       .why = error.reason(),
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
    return keepFile(context_.operation, facts_.serial(), Kept::kBackup, "addressbook", extension,
                    content);
  }

  /// The book as JSON, which 'import' reads again, whose path it gives, and the device's own files
  /// as they stand.
  std::string keepBook() const {
    for (const std::uint32_t handle : bookEntries(device_, BookEntryKind::kFile))
      keep("abk", readBookEntry(device_, BookEntryKind::kFile, handle));
    const auto text = bookFileText(context_.operation, there_, BookFormat::kJSON);
    return keep("json", std::as_bytes(std::span(text)));
  }

  void write(const BookChange& change, const std::string& backup) const {
    try {
      writeAddressBook(device_, change);
    } catch (const Error& error) {
      // What the user has ended says nothing of the book.
      if (error.reason().empty()) throw;
      Failure failure = failureOf(context_, error);
      const std::string kept = "What it held before is in " + backup;
      if (failure.why.starts_with("it was written, but")) {
        failure.why += ". " + kept;
      } else {
        failure.advice = kept + "; 'tarvoctl addressbook import " + backup + "' puts that back.";
      }
      throw ToolError(failure, context_.interrupt.isSet() ? kInterrupted : kFailed);
    }
  }

  void say(const BookChange& change, const std::string& message, bool wasWritten,
           const std::string& backup) const {
    context_.output.message(message);
    if (!context_.output.isJSON()) return;
    PropertyDictionary json = {{"changes", PropertyDictionary::parse(change.json())},
                               {"written", wasWritten}};
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

}  // namespace

void refuseGaps(const ToolContext& context, Device& device, const ContactBook& there,
                const char* outcome, Status status) {
  if (there.unread().empty()) return;
  auto failure = failureOf(context, there.unread().front());
  failure.object = device.facts().name();
  failure.status = status;
  failure.why += outcome;
  throw ToolError(failure);
}

int importBook(ToolContext& context, Device& device, const BookFile& wanted,
               const BookImportOptions& options, const Consent& consent) {
  return Importing(context, device, options, consent).run(wanted);
}

}  // namespace tarvo::tools
