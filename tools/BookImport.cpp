#include "tools/BookImport.h"

#include <utility>

#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/Backup.h"
#include "tools/BookFile.h"
#include "tools/BookWriting.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

/// A terminal holds so many lines of changes; a script reads all of them with --json.
constexpr std::size_t kShownChanges = 40;

/// One import.
class Importing {
 public:
  Importing(ToolContext& context, const OpenedDevice& device, const BookImportOptions& options)
      : context_(context),
        device_(device),
        options_(options),
        encoding_(context.platform.services().defaultEncoding),
        way_(options.sync                  ? BookWay::kSynchronisation
             : keepsContactsSingly(device) ? BookWay::kSingly
                                           : BookWay::kFile),
        there_(readDeviceBook(context, device)) {}

  int run(const AddressBook& wanted, bool isPartial) {
    refuseGap();
    plan_ = planBook(there_.book, wanted,
                     {.keepsOthers = options_.merge,
                      .keepsOnlyLabels = !keepsContactsSingly(device_),
                      .wantedIsPartial = isPartial,
                      .leavesContacts = options_.sync && keepsContactsSingly(device_)});
    refuseInvalid();
    const bool empties = way_ == BookWay::kSynchronisation && !keepsContactsSingly(device_);
    if (plan_.changes.isEmpty() && !empties) {
      say("The device has all of this already.", false, "");
      return kDone;
    }
    sayChanges(wanted);
    if (options_.dryRun) {
      say("Nothing was sent.", false, "");
      return kDone;
    }
    if (!options_.yes &&
        !isConfirmed(context_, "Change the address book of " + device_.device().name() + "?")) {
      context_.output.message("Nothing was sent.");
      return kFailed;
    }
    const std::string backup = keepBook();
    context_.output.message("What the device holds is kept in " + backup + ".");
    write(backup);
    compareAfterwards(backup);
    say(empties ? "The device has an empty address book now." : "The address book was written.",
        true, backup);
    return kDone;
  }

 private:
  /// Contacts that could not be read would be taken for contacts that are not there. A file that is
  /// replaced is backed up as it stands, whatever is in it.
  void refuseGap() const {
    if (there_.gap.empty()) return;
    if (!keepsContactsSingly(device_) && !options_.merge) {
      context_.output.message("Note: " + there_.gap + ".");
      return;
    }
    throw ToolError({.operation = device_.operation(),
                     .object = device_.device().name(),
                     .status = status::kPTPGeneralError,
                     .why = there_.gap + "; nothing was sent",
                     .advice = "Try again."});
  }

  void refuseInvalid() const {
    if (const auto error = device_.device().validateAddressBookDict(plan_.book))
      throw ToolError({.operation = device_.operation(),
                       .status = error->ptpErrorCode,
                       .why = inWords(*error, plan_.book),
                       .advice = "Nothing was sent; correct the entry and try again."});
    const std::string obstacle = obstacleTo(way_, plan_, encoding_);
    if (!obstacle.empty())
      throw ToolError({.operation = device_.operation(),
                       .why = obstacle,
                       .advice = "Nothing was sent; correct the entry and try again."});
  }

  void sayChanges(const AddressBook& wanted) const {
    const auto lines = inWords(plan_.changes);
    for (std::size_t index = 0; index < lines.size() && index < kShownChanges; ++index)
      context_.output.line(lines[index]);
    if (lines.size() > kShownChanges)
      context_.output.line("... and " + std::to_string(lines.size() - kShownChanges) + " more");
    if (!keepsContactsSingly(device_) && wanted.groups && !wanted.groups->empty())
      context_.output.message("The device keeps no groups: those of the file are left out.");
    for (const auto& warning : warningsOf(way_, device_, plan_))
      context_.output.message(warning);
  }

  /// The book as JSON, which 'import' reads again, and the device's own files as they stand. Gives
  /// the one that has all: of a book with a gap that is the file.
  std::string keepBook() const {
    std::string ownFile;
    for (const std::uint32_t handle :
         device_.objectHandles(ptp::XTD_ADDRESS_BOOK_FILE, "the address-book file")) {
      const auto file = device_.device().downloadObject(ObjectReference(handle));
      if (!file) device_.failWithout("the address-book file");
      ownFile = keepBackup(device_, "addressbook", "abk", std::span<const std::byte>(*file));
    }
    const auto json = keepBackup(device_, "addressbook", "json",
                                 bookFileText(device_.operation(), there_.book, BookFormat::kJSON));
    return there_.gap.empty() ? json : ownFile;
  }

  void write(const std::string& backup) {
    const auto written = writeBook(way_, device_, plan_, encoding_);
    if (written.status == status::kOK) return;
    std::string why = written.why.empty() ? "" : written.why + ". ";
    why += written.done.empty() ? "Nothing of it was written"
                                : "Written: " + joined(written.done, "; ");
    if (!written.pending.empty()) why += ". Not written: " + joined(written.pending, "; ");
    if (!written.outcome.empty()) why += ". " + written.outcome;
    std::string advice = "What it held before is in " + backup;
    // No import reads what this one could not read.
    advice +=
        there_.gap.empty() ? "; 'tarvoctl addressbook import " + backup + "' puts that back." : ".";
    throw ToolError({.operation = device_.operation(),
                     .object = device_.device().name(),
                     .status = written.status,
                     .why = why,
                     .advice = advice},
                    context_.interrupt.isSet() ? kInterrupted : kFailed);
  }

  void say(const std::string& message, bool wasWritten, const std::string& backup) const {
    context_.output.message(message);
    if (!context_.output.isJSON()) return;
    PropertyDictionary json = {{"changes", asJSON(plan_.changes)}, {"written", wasWritten}};
    if (!backup.empty()) json["backup"] = validUTF8(backup);
    context_.output.document(json);
  }

  /// Reads the book once more: what the device says it took, and what it has, may differ.
  void compareAfterwards(const std::string& backup) const {
    if (way_ == BookWay::kSynchronisation) return;
    std::size_t wanted = 0;
    for (const auto& contact : *plan_.book.contacts)
      wanted += contact->action == DataSyncAction::kDelete ? 0 : 1;
    Failure failure = {.operation = device_.operation(),
                       .object = device_.device().name(),
                       .advice = "What it held before is in " + backup + "."};
    try {
      const auto now = readDeviceBook(context_, device_);
      if (now.gap.empty() && now.book.contacts->size() == wanted) return;
      failure.why = "it was written, but the device has " +
                    std::to_string(now.book.contacts->size()) + " contacts now, not " +
                    std::to_string(wanted) + (now.gap.empty() ? "" : ": " + now.gap);
    } catch (const ToolError& error) {
      failure.status = error.failure().status;
      failure.why = "it was written, but cannot be read again to make sure";
    }
    endIfInterrupted(context_, device_.operation());
    throw ToolError(failure);
  }

  ToolContext& context_;
  const OpenedDevice& device_;
  const BookImportOptions& options_;
  std::string encoding_;
  BookWay way_;
  DeviceBook there_;
  BookPlan plan_;
};

}  // namespace

int importBook(ToolContext& context, const OpenedDevice& device, const AddressBook& wanted,
               bool isPartial, const BookImportOptions& options) {
  return Importing(context, device, options).run(wanted, isPartial);
}

}  // namespace tarvo::tools
