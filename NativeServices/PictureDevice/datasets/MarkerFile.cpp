#include "NativeServices/PictureDevice/datasets/MarkerFile.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/Format.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

// Whatever the program looks for stands at the beginning of a line, and only the line feed before
// it tells that.
constexpr std::string_view kJob = "\n[JOB]";
constexpr std::string_view kRecipient = "\nDST EML";
constexpr std::string_view kEmailImage = "\nIMG SRC";
constexpr std::string_view kQuantity = "\nPRT QTY";
constexpr std::string_view kPrintImage = "\n<IMG SRC";

constexpr std::string_view kSpaceEqual = " =";
constexpr std::string_view kSpaceEqualQuote = " =\"";
// So many are passed over at most; what follows belongs to the value.
constexpr std::size_t kMostSeparators = 8;

/// Recipients overlap where quotation marks are missing, so a small file could grow to gigabytes.
/// Those of a whole file may hold twice its bytes and this much together, which no file reaches
/// that a camera writes.
constexpr std::size_t kRoomForRecipients = std::size_t{1} << 20;

std::size_t countOfSeparators(std::string_view text, std::size_t offset,
                              std::string_view separators) {
  if (offset >= text.size()) return 0;
  const std::string_view first = text.substr(offset, kMostSeparators);
  return std::min(first.find_first_not_of(separators), first.size());
}

/// Hands each job to `read`: from its line feed up to that of the next one, which is no longer part
/// of it, though it ends the last line.
template <typename Read>
void forEachJob(std::string_view text, const Read& read) {
  std::size_t at = text.find(kJob);
  while (at != kNone) {
    const std::size_t next = text.find(kJob, at + kJob.size());
    read(text.substr(at, next == kNone ? kNone : next - at));
    at = next;
  }
}

/// What stands between the first `keyword` with its separators and `end`. None where one of the two
/// is missing; a later keyword does not make up for that.
std::optional<std::string> firstValue(std::string_view job, std::string_view keyword,
                                      std::string_view separators, std::string_view end) {
  const std::size_t at = job.find(keyword);
  if (at == kNone) return std::nullopt;
  std::size_t start = at + keyword.size();
  start += countOfSeparators(job, start, separators);
  const std::size_t stop = job.find(end, start);
  if (stop == kNone) return std::nullopt;
  return std::string(job.substr(start, stop - start));
}

/// The recipients of a job in order, as long as `room` bytes suffice for them.
std::vector<std::string> recipientsOf(std::string_view job, std::size_t& room) {
  std::vector<std::string> recipients;
  // Looked for once and kept: it may be that of many keywords.
  std::size_t closingQuote = 0;
  for (std::size_t at = job.find(kRecipient); at != kNone;) {
    std::size_t start = at + kRecipient.size();
    start += skipSpaceEqualQuote(job, start);
    if (closingQuote < start) closingQuote = job.find('"', start);
    if (closingQuote == kNone) break;  // nor do later keywords have one
    const std::size_t length = closingQuote - start;
    if (length > room) {
      TraceLog::trace("recipients left out: they overlap too often");
      break;
    }
    room -= length;
    recipients.emplace_back(job.substr(start, length));
    TraceLog::trace("recipient: %s", recipients.back().c_str());
    // Not behind the closing quotation mark: a recipient may hold the keyword of the next one.
    // Intended, see docs/oddities.md.
    at = job.find(kRecipient, start);
  }
  return recipients;
}

void appendEmailOrder(EmailOrders& list, std::string_view job, std::size_t& room) {
  auto recipients = recipientsOf(job, room);
  const auto path = firstValue(job, kEmailImage, kSpaceEqualQuote, "\"");
  if (path) TraceLog::trace("need image file: %s", path->c_str());
  // A marker names its pictures by path on the card ("../DCIM/..."); only the name is looked for.
  std::string name = lastPathComponent(path.value_or(""));
  if (recipients.empty() || name.empty()) return;
  if (TraceLog::isActive()) {
    TraceLog::traceWithTag("_emailOrderList send " + *path + " to " + listText(recipients), {});
  }
  EmailOrder order;
  order.destAddresses = std::move(recipients);
  order.assets.push_back(std::move(name));
  list.push_back(std::move(order));
}

/// The number that the text begins with after blanks; 0 where it begins with none, and the nearest
/// one that there is for one that is too large.
std::int32_t integerValue(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with('-')) return 0;  // a second sign, which from_chars would take
  std::int64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  using Limits = std::numeric_limits<std::int32_t>;
  if (result.ec == std::errc::result_out_of_range) value = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(isNegative ? -value : value, Limits::min(), Limits::max()));
}

void appendPrintOrder(PrintOrders& list, std::string_view job) {
  std::int32_t quantity = 0;
  if (const auto text = firstValue(job, kQuantity, kSpaceEqual, "\n")) {
    quantity = integerValue(*text);
    TraceLog::trace("need quantity: %i", quantity);
  }
  const auto path = firstValue(job, kPrintImage, kSpaceEqualQuote, "\">");
  if (path) TraceLog::trace("need image file: %s", path->c_str());
  std::string name = lastPathComponent(path.value_or(""));
  if (name.empty()) return;
  PrintOrder order;
  // An order of none is one copy: somebody has marked the picture.
  order.quantity = std::max(quantity, 1);
  order.assets.push_back(std::move(name));
  TraceLog::trace("_printOrderList %d copies of %s", order.quantity, path->c_str());
  list.push_back(std::move(order));
}

}  // namespace

std::size_t skipSpaceEqual(std::string_view text, std::size_t offset) {
  return countOfSeparators(text, offset, kSpaceEqual);
}

std::size_t skipSpaceEqualQuote(std::string_view text, std::size_t offset) {
  return countOfSeparators(text, offset, kSpaceEqualQuote);
}

void appendEmailOrders(EmailOrders& list, std::string_view text) {
  std::size_t room = 2 * text.size() + kRoomForRecipients;
  forEachJob(text, [&](std::string_view job) { appendEmailOrder(list, job, room); });
}

void appendPrintOrders(PrintOrders& list, std::string_view text) {
  forEachJob(text, [&](std::string_view job) { appendPrintOrder(list, job); });
}

Status fillInEmailOrderList(EmailOrders& list, const std::string& mrkFile,
                            const std::string& defaultEncoding) {
  if (const auto text = textFileInEncoding(mrkFile, defaultEncoding)) {
    appendEmailOrders(list, *text);
  }
  return status::kOK;
}

Status fillInPrintOrderList(PrintOrders& list, const std::string& mrkFile,
                            const std::string& defaultEncoding) {
  if (const auto text = plainTextFile(mrkFile, defaultEncoding)) appendPrintOrders(list, *text);
  return status::kOK;
}

}  // namespace tarvo
