// Feeds the readers of order markers what a hostile device could have in its files.
//
// The first byte of an input chooses the encoding, or none, since the parser takes any bytes; the
// rest is the file. A second reading, which
// follows the rules one by one without a thought for time, must give the same orders; what they
// hold is bounded by the file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/MarkerFile.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/PropertyDictionary.h"
#include "fuzz/Require.h"

namespace {

/// Conversion takes most of the time, so most inputs go without.
constexpr std::size_t kChoices = 16;
constexpr const char* kEncodings[] = {"UTF-8", "ISO-8859-1", "SHIFT_JIS", "ASCII"};

/// Up to here the overlap of recipients is never limited.
constexpr std::size_t kMostBytesCompared = 4096;

// The second reading. Positions are found from the start of the text each time.

std::vector<std::string> naiveJobs(const std::string& text) {
  std::vector<std::string> jobs;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 6, "\n[JOB]") == 0) jobs.emplace_back();
    if (!jobs.empty()) jobs.back() += text[i];
  }
  return jobs;
}

std::size_t naiveSkip(const std::string& text, std::size_t offset, const std::string& separators) {
  std::size_t count = 0;
  while (count < 8 && offset + count < text.size() &&
         separators.find(text[offset + count]) != std::string::npos)
    ++count;
  return count;
}

/// Values of every occurrence of `keyword`; none for one that is not closed.
std::vector<std::optional<std::string>> naiveValues(const std::string& job,
                                                    const std::string& keyword,
                                                    const std::string& separators,
                                                    const std::string& end) {
  std::vector<std::optional<std::string>> values;
  for (std::size_t i = 0; i < job.size(); ++i) {
    if (job.compare(i, keyword.size(), keyword) != 0) continue;
    i += keyword.size();
    i += naiveSkip(job, i, separators);
    const std::size_t stop = job.find(end, i);
    values.push_back(stop == std::string::npos ? std::nullopt
                                               : std::optional(job.substr(i, stop - i)));
    --i;  // the loop goes on right behind the separators
  }
  return values;
}

std::string naiveName(const std::string& job, const std::string& keyword, const std::string& end) {
  const auto values = naiveValues(job, keyword, " =\"", end);
  return values.empty() ? "" : tarvo::lastPathComponent(values[0].value_or(""));
}

tarvo::EmailOrders naiveEmailOrders(const std::string& text) {
  tarvo::EmailOrders orders;
  for (const auto& job : naiveJobs(text)) {
    tarvo::EmailOrder order;
    for (const auto& value : naiveValues(job, "\nDST EML", " =\"", "\"")) {
      if (value) order.destAddresses.push_back(*value);
    }
    order.assets = {naiveName(job, "\nIMG SRC", "\"")};
    if (!order.destAddresses.empty() && !order.assets[0].empty()) orders.push_back(order);
  }
  return orders;
}

std::int32_t naiveQuantity(const std::string& job) {
  const auto values = naiveValues(job, "\nPRT QTY", " =", "\n");
  const std::string number = values.empty() ? "" : values[0].value_or("");
  std::size_t i = number.find_first_not_of(" \t");
  if (i != std::string::npos && number[i] == '+') ++i;
  std::int64_t quantity = 0;
  for (; i < number.size() && number[i] >= '0' && number[i] <= '9'; ++i)
    quantity = std::min<std::int64_t>(quantity * 10 + (number[i] - '0'), INT32_MAX);
  return static_cast<std::int32_t>(std::max<std::int64_t>(quantity, 1));
}

tarvo::PrintOrders naivePrintOrders(const std::string& text) {
  tarvo::PrintOrders orders;
  for (const auto& job : naiveJobs(text)) {
    tarvo::PrintOrder order;
    order.quantity = naiveQuantity(job);
    order.assets = {naiveName(job, "\n<IMG SRC", "\">")};
    if (!order.assets[0].empty()) orders.push_back(order);
  }
  return orders;
}

void checkEmail(const std::string& text) {
  tarvo::EmailOrders orders;
  tarvo::appendEmailOrders(orders, text);
  std::size_t total = 0;
  for (const auto& order : orders) {
    require(!order.destAddresses.empty() && order.assets.size() == 1);
    total += order.assets[0].size();
    for (const auto& address : order.destAddresses)
      total += address.size();
  }
  require(total <= 3 * text.size() + (1U << 20));
  if (text.size() <= kMostBytesCompared) require(orders == naiveEmailOrders(text));
}

void checkPrint(const std::string& text) {
  tarvo::PrintOrders orders;
  tarvo::appendPrintOrders(orders, text);
  std::size_t total = 0;
  for (const auto& order : orders) {
    require(order.quantity >= 1 && order.assets.size() == 1);
    total += order.assets[0].size();
  }
  require(total <= text.size());
  if (text.size() <= kMostBytesCompared) require(orders == naivePrintOrders(text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::size_t choice = *data % kChoices;
  if (choice >= std::size(kEncodings)) {
    checkEmail(bytes);
    checkPrint(bytes);
    return 0;
  }
  const std::string encoding = kEncodings[choice];
  if (const auto text = tarvo::textInEncoding(bytes, encoding)) checkEmail(*text);
  if (const auto text = tarvo::plainText(bytes, encoding)) checkPrint(*text);
  return 0;
}
