#include "tools/import/ImportProgress.h"

#include <algorithm>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

constexpr std::chrono::milliseconds kRedraw{100};
/// Work that is done sooner needs no line.
constexpr std::chrono::milliseconds kBeforeFirst{500};

/// "1.2 of 4.0 GB", where both have the same unit.
std::string partInWords(std::uint64_t part, std::uint64_t whole) {
  const std::string done = sizeInWords(part);
  const std::string all = sizeInWords(whole);
  const auto unit = done.rfind(' ');
  const bool isSameUnit = all.ends_with(done.substr(unit));
  return (isSameUnit ? done.substr(0, unit) : done) + " of " + all;
}

}  // namespace

std::uint64_t ImportPace::rate() const {
  return elapsed.count() <= 0 ? 0 : bytes * 1000 / static_cast<std::uint64_t>(elapsed.count());
}

std::uint64_t ImportPace::secondsLeft() const {
  const std::uint64_t perSecond = rate();
  return perSecond == 0 || ofBytes <= bytes ? 0 : (ofBytes - bytes + perSecond - 1) / perSecond;
}

std::string importLine(const ImportPace& pace, std::size_t columns) {
  std::string line = std::to_string(pace.files) + "/" + std::to_string(pace.ofFiles) + " files";
  // The most telling first: what has no room is left out.
  for (const std::string& part :
       {pace.secondsLeft() > 0 ? durationInWords(pace.secondsLeft()) : std::string(),
        partInWords(pace.bytes, pace.ofBytes),
        pace.rate() > 0 ? sizeInWords(pace.rate()) + "/s" : std::string()}) {
    if (!part.empty() && line.size() + 2 + part.size() <= columns) line += "  " + part;
  }
  return line.substr(0, columns);
}

ImportProgress::~ImportProgress() {
  context_.output.status({});
}

void ImportProgress::expect(std::uint64_t files, std::uint64_t bytes) {
  context_.output.status({});
  pace_ = {.ofFiles = files, .ofBytes = bytes};
  started_ = Clock::now();
}

void ImportProgress::looked(std::uint64_t objects) {
  if (context_.output.showsStatus() && Clock::now() - started_ >= kBeforeFirst &&
      Clock::now() - lastDrawn_ >= kRedraw)
    show(counted(objects, "objects looked at"));
}

void ImportProgress::unreadable(const std::string& path, const Error& error) {
  ++unread_;
  const Failure failure = failureOf(context_, error, path);
  context_.output.item({{"source", validUTF8(path)}, {"error", asJSON(failure)}});
  context_.output.objectError(failure);
}

void ImportProgress::begins(const importing::Item& /*item*/) {
  bytesBefore_ = pace_.bytes;
}

void ImportProgress::progressed(const importing::Item& /*item*/, std::uint64_t done) {
  pace_.bytes = bytesBefore_ + done;
  draw();
}

void ImportProgress::ended(const importing::Item& item, const importing::Result& result) {
  using importing::Outcome;
  ++pace_.files;
  pace_.bytes = bytesBefore_ + item.object.size();
  PropertyDictionary json = {{"source", validUTF8(item.object.path())}};
  if (item.object.handle() != 0) json["handle"] = item.object.handle();
  if (!result.path.empty()) json["path"] = validUTF8(result.path);
  if (result.outcome == Outcome::kKnown) json["known"] = true;
  const bool isHere = result.outcome == Outcome::kFetched || result.outcome == Outcome::kKnown;
  if (!isHere) {
    Failure failure = {.operation = context_.operation,
                       .object = item.object.path(),
                       .status = status::kIOError,
                       .why = result.why};
    if (result.error) failure = failureOf(context_, *result.error, item.object.path());
    json["error"] = asJSON(failure);
    // That the disk is full is said once; the sum has the number.
    const bool isSaid = result.outcome == Outcome::kNoRoom && hasToldOfRoom_;
    hasToldOfRoom_ = hasToldOfRoom_ || result.outcome == Outcome::kNoRoom;
    if (!isSaid) context_.output.objectError(failure);
  }
  context_.output.item(json);
  draw();
}

void ImportProgress::deleted(const importing::Item& item) {
  context_.output.item({{"source", validUTF8(item.object.path())}, {"deleted", true}});
}

void ImportProgress::keptOnDevice(const importing::Item& item, const std::string& why) {
  context_.output.item(
      {{"source", validUTF8(item.object.path())}, {"deleted", false}, {"why", why}});
  context_.output.message(printable(item.object.path()) + " stays on the device: " + why + ".");
}

void ImportProgress::draw() {
  const auto now = Clock::now();
  if (!context_.output.showsStatus() || now - started_ < kBeforeFirst || now - lastDrawn_ < kRedraw)
    return;
  pace_.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
  show(importLine(pace_, terminalColumns() - 1));
}

void ImportProgress::show(const std::string& line) {
  lastDrawn_ = Clock::now();
  context_.output.status(line.substr(0, terminalColumns() - 1));
}

}  // namespace tarvo::tools
