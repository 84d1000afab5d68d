#include "tools/addressbook/BookImport.h"

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/OrderList.h"
#include "tools/addressbook/BookFile.h"
#include "tools/addressbook/BookWriting.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

/// A terminal holds so many lines of changes; a script reads all of them with --json.
constexpr std::size_t kShownChanges = 40;

/// One import.
class Importing {
 public:
  Importing(ToolContext& context, const OpenedDevice& device, const BookImportOptions& options,
            const Consent& consent)
      : context_(context),
        device_(device),
        options_(options),
        consent_(consent),
        surroundings_({.encoding = context.platform.services().defaultEncoding}),
        way_(options.sync                  ? BookWay::kSynchronisation
             : keepsContactsSingly(device) ? BookWay::kSingly
                                           : BookWay::kFile),
        there_(readDeviceBook(context, device)) {}

  int run(const BookFile& file) {
    const AddressBook& wanted = file.book;
    refuseGaps();
    plan_ = planBook(there_.book, wanted,
                     {.keepsOthers = options_.merge,
                      .keepsOnlyLabels = !keepsContactsSingly(device_),
                      .wantedIsPartial = file.isPartial,
                      .nameless = file.nameless,
                      .leavesContacts = options_.sync && keepsContactsSingly(device_)});
    // Where it is not known who is who, one of two people would be lost.
    refuse(plan_.doubt, "Export the book, and change that.");
    const bool empties = way_ == BookWay::kSynchronisation && !keepsContactsSingly(device_);
    if (plan_.changes.isEmpty() && !empties) {
      say("The device has all of this already.", false, "");
      return kDone;
    }
    // Of the plan and not of the file: with --merge the book is both.
    refuseInvalid();
    refuseOtherRecipients();
    sayChanges(wanted);
    if (options_.dryRun) {
      say("Nothing was sent.", false, "");
      return kDone;
    }
    consent_.require("Change the address book of " + device_.device().name() + "?",
                     "nothing was sent");
    // On the disk before the first byte is sent.
    const std::string backup = keepBook();
    context_.output.message("What the device holds is kept in " + backup + ".");
    write(backup);
    // A device may say OK to what it then keeps otherwise.
    compareAfterwards(backup);
    say(empties ? "The device has an empty address book now." : "The address book was written.",
        true, backup);
    return kDone;
  }

 private:
  /// Contacts that could not be read would be taken for contacts that are not there.
  void refuseGaps() const {
    if (there_.unread.empty()) return;
    auto failure = failureOf(device_, there_.unread.front());
    failure.object = device_.device().name();
    failure.status = status::kPTPGeneralError;
    failure.why += "; nothing was sent";
    throw ToolError(failure);
  }

  void refuse(const std::string& why, const std::string& advice) const {
    if (why.empty()) return;
    throw ToolError(
        {.operation = device_.operation(), .why = why, .advice = "Nothing was sent. " + advice});
  }

  void refuseInvalid() const {
    if (const auto error = device_.device().validateAddressBookDict(plan_.book))
      throw ToolError({.operation = device_.operation(),
                       .status = error->ptpErrorCode,
                       .why = inWords(*error, plan_.book),
                       .advice = "Nothing was sent; correct the entry and try again."});
    refuse(obstacleTo(way_, plan_, surroundings_), "Correct the entry and try again.");
  }

  /// An order names its recipients by their handles: it would go to another address, or to nobody.
  void refuseOtherRecipients() {
    if (way_ != BookWay::kSingly || !plan_.changes.hasContacts()) return;
    const auto orders = emailRecipients(device_);
    for (const auto& [recipient, order] : orders)
      surroundings_.recipients.insert(recipient);
    const auto refuseFor = [&](const Contact& contact) {
      const auto found = orders.find(contact.handle);
      if (found == orders.end()) return;
      const std::string order = handleText(found->second);
      refuse("e-mail order " + order + " goes to " + contactInWords(contact),
             "Fulfil the order, or delete it ('tarvoctl orders delete " + order + "').");
    };
    for (const auto& contact : plan_.changes.removed)
      refuseFor(*contact);
    for (const auto& changed : plan_.changes.changed)
      if (changed.before->email != changed.after->email) refuseFor(*changed.before);
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

  /// The book as JSON, which 'import' reads again, whose path it gives, and the device's own files
  /// as they stand.
  std::string keepBook() const {
    for (const std::uint32_t handle :
         device_.objectHandles(ptp::XTD_ADDRESS_BOOK_FILE, "the address-book file")) {
      const auto file = device_.device().downloadObject(ObjectReference(handle));
      if (!file) device_.failWithout("the address-book file");
      keepFile(device_, Kept::kBackup, "addressbook", "abk", *file);
    }
    const auto text = bookFileText(device_.operation(), there_.book, BookFormat::kJSON);
    return keepFile(device_, Kept::kBackup, "addressbook", "json", std::as_bytes(std::span(text)));
  }

  void write(const std::string& backup) {
    const auto written = writeBook(way_, device_, plan_, surroundings_);
    if (written.status == status::kOK) return;
    std::string why = written.why.empty() ? "" : written.why + ". ";
    why += howFar(written);
    if (!written.outcome.empty()) why += ". " + written.outcome;
    throw ToolError({.operation = device_.operation(),
                     .object = device_.device().name(),
                     .status = written.status,
                     .why = why,
                     .advice = "What it held before is in " + backup +
                               "; 'tarvoctl addressbook import " + backup + "' puts that back."},
                    context_.interrupt.isSet() ? kInterrupted : kFailed);
  }

  /// What was written and what was not: by the device itself, where it can still be asked, for the
  /// answer to a change may be lost and the change there all the same.
  std::string howFar(const BookWritten& written) const {
    const auto left = keepsContactsSingly(device_) ? differencesNow() : std::nullopt;
    std::set<std::string> known;
    for (const auto& line : left ? inWords(*left) : written.done)
      known.insert(headOf(line));
    std::vector<std::string> open;
    std::vector<std::string> done;
    for (const auto& line : inWords(plan_.changes))
      (known.contains(headOf(line)) == left.has_value() ? open : done).push_back(line);
    std::string words =
        done.empty() ? "Nothing of it was written" : "Written: " + joined(done, "; ");
    if (!open.empty()) words += ". Not written: " + joined(open, "; ");
    if (keepsContactsSingly(device_) && !left)
      words += ". The last change may or may not have arrived: the device cannot be asked";
    return words;
  }

  /// A line without what it says in brackets, which may be another number by now.
  static std::string headOf(const std::string& line) {
    return line.substr(0, line.ends_with(')') ? line.rfind(" (") : std::string::npos);
  }

  /// What the device lacks of the book that it was to get, by reading it once more; none where it
  /// cannot be read in whole.
  std::optional<BookChanges> differencesNow() const {
    try {
      const auto now = readDeviceBook(context_, device_);
      auto plan =
          planBook(now.book, plan_.book, {.keepsOnlyLabels = !keepsContactsSingly(device_)});
      if (now.unread.empty() && plan.doubt.empty()) return std::move(plan.changes);
    } catch (const ToolError&) {
      // Told by the caller, which knows what it means there.
    }
    return std::nullopt;
  }

  void say(const std::string& message, bool wasWritten, const std::string& backup) const {
    context_.output.message(message);
    if (!context_.output.isJSON()) return;
    PropertyDictionary json = {{"changes", asJSON(plan_.changes)}, {"written", wasWritten}};
    if (!backup.empty()) json["backup"] = validUTF8(backup);
    context_.output.document(json);
  }

  /// What the device says it took, and what it has, may differ.
  void compareAfterwards(const std::string& backup) const {
    const auto left = differencesNow();
    if (left && left->isEmpty()) return;
    endIfInterrupted(context_, device_.operation());
    throw ToolError(device_.failure(
        device_.device().name(),
        left ? status::kPTPIncompleteTransfer : device_.transactions().lastOutcome(),
        left ? "it was written, but the device has it differently: " +
                   joined(inWords(*left), "; ") + ". What it held before is in " + backup
             : "it was written, but cannot be read again to make sure. What it held before is in " +
                   backup));
  }

  ToolContext& context_;
  const OpenedDevice& device_;
  const BookImportOptions& options_;
  const Consent& consent_;
  BookSurroundings surroundings_;
  BookWay way_;
  DeviceBook there_;
  BookPlan plan_;
};

}  // namespace

int importBook(ToolContext& context, const OpenedDevice& device, const BookFile& wanted,
               const BookImportOptions& options, const Consent& consent) {
  return Importing(context, device, options, consent).run(wanted);
}

}  // namespace tarvo::tools
