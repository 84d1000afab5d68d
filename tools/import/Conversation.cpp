#include "tools/import/Conversation.h"

#include <glib.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "import/Fetch.h"
#include "import/Groups.h"
#include "import/Previews.h"
#include "platform/files/FilePlace.h"
#include "tools/access/Devices.h"
#include "tools/import/ImportPace.h"
#include "tools/orders/OrderPictures.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

using importing::Item;

namespace {

constexpr int kProtocol = 1;
/// How often is told what changes all the time.
constexpr std::chrono::milliseconds kPace{200};
/// Small pictures between two objects of an import, so that it goes on.
constexpr int kThumbnailsAtOnce = 4;

const char* kindInWords(importing::MediaKind kind) {
  using importing::MediaKind;
  switch (kind) {
    case MediaKind::kPicture:
      return "picture";
    case MediaKind::kRaw:
      return "raw";
    case MediaKind::kFilm:
      return "film";
    case MediaKind::kSound:
      return "sound";
    case MediaKind::kThumbnail:
    case MediaKind::kSidecar:
      return "companion";
    case MediaKind::kOther:
      break;
  }
  return "other";
}

std::string dateInJSON(const importing::CalendarTime& time) {
  const auto parts = time.parts();
  return time.day() + formatted("T%02d:%02d:%02d", parts.hour, parts.minute, parts.second);
}

PropertyDictionary objectAsJSON(std::size_t id, const Item& item) {
  PropertyDictionary json = {{"id", id},
                             {"name", validUTF8(item.object.name())},
                             {"path", validUTF8(item.object.path())},
                             {"size", item.object.size()},
                             {"kind", kindInWords(importing::mediaKindOf(item.object.name()))},
                             {"new", item.isToFetch()},
                             {"protected", item.object.isProtected()}};
  if (item.taken) json["taken"] = dateInJSON(*item.taken);
  return json;
}

std::string base64(const std::vector<std::byte>& bytes) {
  const auto* const data = reinterpret_cast<const guchar*>(bytes.data());
  g_autofree gchar* text = g_base64_encode(data, bytes.size());
  return text;
}

bool isTrue(const PropertyDictionary& json, std::string_view key) {
  const auto* const value = valueForKey(json, key);
  return value != nullptr && value->is_boolean() && value->get<bool>();
}

/// What only some cameras tell is left out where it is not told.
void addWhatACameraTells(Device& device, PropertyDictionary& hello) {
  if (device.info().kind() != DeviceKind::kCamera) return;
  try {
    if (std::ranges::count(device.facts().properties(), ptp::kBatteryLevel) > 0)
      hello["battery"] = device.batteryLevel();
    if (const auto count = readOrders(device).orders().size(); count > 0) hello["orders"] = count;
  } catch (const Error& error) {
    if (error.endsDevice()) throw;
  }
}

/// Lines of an input that is read only as far as something is there. The descriptor is lent.
class LineInput {
 public:
  explicit LineInput(int descriptor) : descriptor_(descriptor) {}

  /// The next whole line, without its end; none where there is none yet. A line of more than a
  /// megabyte ends the input.
  std::optional<std::string> next() {
    constexpr std::size_t kLongest = std::size_t{1} << 20;
    for (;;) {
      const auto end = pending_.find('\n');
      if (end != std::string::npos) {
        std::string line = pending_.substr(0, end);
        pending_.erase(0, end + 1);
        return line;
      }
      if (pending_.size() > kLongest) hasEnded_ = true;
      if (hasEnded_ || !read()) return std::nullopt;
    }
  }
  /// Nothing more comes.
  bool hasEnded() const { return hasEnded_; }
  int descriptor() const { return descriptor_; }

 private:
  bool read() {
    pollfd input = {.fd = descriptor_, .events = POLLIN, .revents = 0};
    if (::poll(&input, 1, 0) <= 0) return false;
    std::array<char, 65536> piece{};
    const ssize_t length = ::read(descriptor_, piece.data(), piece.size());
    if (length < 0 && (errno == EINTR || errno == EAGAIN)) return false;
    hasEnded_ = length <= 0;
    if (length > 0) pending_.append(piece.data(), static_cast<std::size_t>(length));
    return length > 0;
  }

  int descriptor_;
  std::string pending_;
  bool hasEnded_ = false;
};

/// Everything that is told is one line of standard output, every command one of standard input.
class Conversation : public importing::ImportObserver {
 public:
  Conversation(ToolContext& context, Device& device, importing::History* history,
               importing::ImportOptions& options, importing::Wanted wanted)
      : context_(context),
        device_(device),
        history_(history),
        options_(options),
        wanted_(std::move(wanted)),
        search_(device, history, options, *this),
        input_(::fileno(context.input)) {}

  /// Until the input ends, or the device leaves. Gives the exit status.
  int run() {
    const auto leaving = context_.session().onDevice([this](Presence presence, const auto& info) {
      isGone_ = isGone_ || (presence == Presence::kWent && info.id() == device_.info().id());
    });
    hello();
    for (listen(); !isGone_ && !isAlone() && !context_.interrupt.isSet(); listen()) {
      if (!commands_.empty()) {
        const Json command = std::move(commands_.front());
        commands_.pop_front();
        obey(command);
      } else if (!thumbnails_.empty()) {
        tellOneThumbnail();
      } else if (isLeaving_) {
        return kDone;
      } else {
        pollfd waited[] = {{.fd = input_.descriptor(), .events = POLLIN, .revents = 0},
                           {.fd = context_.session().fd(), .events = POLLIN, .revents = 0}};
        ::poll(waited, std::size(waited), -1);
      }
      context_.session().dispatch();
    }
    if (isGone_) tell("gone");
    if (isAlone()) return kDone;
    return isGone_ ? kFailed : int{kInterrupted};
  }

  bool goesOn() override {
    listen();
    return !isCancelled_ && !isAlone() && !context_.interrupt.isSet();
  }

  void pauses() override {
    for (int count = 0; count < kThumbnailsAtOnce && !thumbnails_.empty(); ++count)
      tellOneThumbnail();
  }

  void looked(std::uint64_t objects) override {
    if (Clock::now() - lastTold_ < kPace) return;
    lastTold_ = Clock::now();
    tell("looking", {{"objects", objects}});
  }

  void found(const Item& item) override {
    tell("object", objectAsJSON(idOf(item), item));
    isToldNew_.push_back(item.isToFetch());
    isSafe_.push_back(false);
  }

  void unreadable(const std::string& path, const Error& error) override {
    tell("unreadable", asJSON(failureOf(context_, error, path)));
  }

  void begins(const Item& item) override {
    bytesBefore_ = pace_.bytes;
    current_ = idOf(item);
  }

  void progressed(const Item& /*item*/, std::uint64_t done) override {
    pace_.bytes = bytesBefore_ + done;
    tellProgress(false);
  }

  void ended(const Item& item, const importing::Result& result) override {
    using importing::Outcome;
    ++pace_.files;
    pace_.bytes = bytesBefore_ + item.object.size();
    Json json = {{"id", idOf(item)}};
    if (!result.path.empty()) json["path"] = validUTF8(result.path);
    const bool isHere = result.outcome == Outcome::kFetched || result.outcome == Outcome::kKnown;
    if (!isHere) json["why"] = validUTF8(result.why);
    if (!isHere && result.error) json["error"] = asJSON(failureOf(context_, *result.error));
    tell(result.outcome == Outcome::kFetched  ? "fetched"
         : result.outcome == Outcome::kKnown  ? "known"
         : result.outcome == Outcome::kNoRoom ? "noRoom"
                                              : "failed",
         json);
    tellProgress(false);
  }

  void secured(const Item& item, const std::string& path) override {
    isSafe_[idOf(item)] = true;
    tell("safe", {{"id", idOf(item)}, {"path", validUTF8(path)}});
  }

  void deleted(const Item& item) override { tell("deleted", {{"id", idOf(item)}}); }

  void keptOnDevice(const Item& item, const std::string& why) override {
    tell("kept", {{"id", idOf(item)}, {"why", why}});
  }

  void warned(const std::string& text) override { context_.output.message(text); }

 private:
  using Clock = std::chrono::steady_clock;
  using Json = PropertyDictionary;

  /// Who is not there any more wants nothing.
  bool isAlone() const { return input_.hasEnded() && !isLeaving_; }

  void tell(const std::string& event, const Json& json = {}) { context_.output.event(event, json); }

  void hello() {
    Json event = {{"protocol", kProtocol},
                  {"device", asJSON(device_.info())},
                  {"folder", validUTF8(options_.folder)}};
    if (const auto here = fileSystemSizeOf(options_.folder)) event["free"] = here->free;
    addWhatACameraTells(device_, event);
    tell("hello", event);
  }

  /// Takes what has come; commands that cannot wait are done at once.
  void listen() {
    while (const auto line = input_.next()) {
      Json command;
      try {
        command = jsonFromText(*line);
      } catch (const Exception& exception) {
        refuse("", exception.reason());
        continue;
      }
      const auto name = textForKey(command, "command").value_or("");
      if (name == "cancel") {
        isCancelled_ = isBusy_;
        thumbnails_.clear();
      } else if (name == "quit") {
        isLeaving_ = true;
      } else if (name == "thumbnail") {
        wantThumbnails(command);
      } else if (isBusy_) {
        refuse(name, "an import is running, or the device is being looked through");
      } else {
        commands_.push_back(std::move(command));
      }
    }
  }

  void obey(const Json& command) {
    const auto name = textForKey(command, "command").value_or("");
    isCancelled_ = false;
    isBusy_ = name == "list" || name == "start" || name == "delete";
    try {
      if (name == "list") {
        list();
      } else if (name == "choose") {
        choose(command);
      } else if (name == "start") {
        start(command);
      } else if (name == "delete") {
        remove(command);
      } else if (name == "clock") {
        device_.setClock();
        tell("clock");
      } else {
        refuse(name, "there is no such command");
      }
    } catch (const Error& error) {
      tell("error", asJSON(failureOf(context_, error)));
      isGone_ = isGone_ || error.endsDevice();
    } catch (const importing::HistoryError& error) {
      tell("error", {{"message", error.what()}});
    }
    isBusy_ = false;
  }

  void refuse(const std::string& command, const std::string& why) {
    tell("refused", {{"command", validUTF8(command)}, {"why", why}});
  }

  void list() {
    lastTold_ = Clock::now();
    isSafe_.clear();
    isToldNew_.clear();
    thumbnails_.clear();
    search_.run(wanted_, true);
    const auto& items = search_.items();
    std::uint64_t news = 0;
    std::uint64_t bytes = 0;
    for (std::size_t id = 0; id < items.size(); ++id) {
      // What the whole of the device tells of it.
      if (items[id].isToFetch() != isToldNew_[id]) tell("object", objectAsJSON(id, items[id]));
      if (!items[id].isToFetch()) continue;
      ++news;
      bytes += items[id].object.size();
    }
    tell("listed",
         {{"objects", items.size()}, {"new", news}, {"bytes", bytes}, {"cancelled", isCancelled_}});
  }

  void choose(const Json& command) {
    const auto what = textForKey(command, "what");
    if (what && *what != "new" && *what != "none") return refuse("choose", "what is new, or none");
    auto& items = search_.items();
    for (auto& item : items)
      item.isChosen = what == "new";
    for (const std::size_t id : idsOf(command))
      items[id].isChosen = true;
    for (const std::size_t id : idsOf(command, "except"))
      items[id].isChosen = false;
    tell("chosen", {{"objects", std::ranges::count_if(items, &Item::isToFetch)}});
  }

  void start(const Json& command) {
    options_.verifies = isTrue(command, "verify");
    options_.deletes = isTrue(command, "delete");
    pace_ = {};
    for (const auto& item : search_.items()) {
      if (!item.isToFetch()) continue;
      ++pace_.ofFiles;
      pace_.ofBytes += item.object.size();
    }
    Json begun = {{"files", pace_.ofFiles}, {"bytes", pace_.ofBytes}};
    if (const auto here = fileSystemSizeOf(options_.folder)) begun["free"] = here->free;
    tell("started", begun);
    started_ = lastTold_ = Clock::now();
    Json done = fetch();
    if (isTrue(command, "orders") && !done.contains("error") && goesOn()) {
      try {
        done["orders"] = fetchOrders();
      } catch (const Error& error) {
        endedBy(error, done);
      }
    }
    done["cancelled"] = isCancelled_;
    tell("done", done);
  }

  /// What `start` fetches; with the device's error in it where that ended it.
  Json fetch() {
    importing::ImportSum sum;
    Json done = {{"folder", validUTF8(options_.folder)}};
    try {
      importing::Fetch(device_, history_, options_, *this, sum).run(search_.items());
    } catch (const Error& error) {
      endedBy(error, done);
    }
    tellProgress(true);
    done.update({{"fetched", sum.fetched},
                 {"bytes", sum.bytes},
                 {"known", sum.known},
                 {"failed", sum.failed},
                 {"noRoom", sum.noRoom},
                 {"deleted", sum.deleted},
                 {"kept", sum.kept}});
    return done;
  }

  /// The number of those that are here as a whole.
  std::uint64_t fetchOrders() {
    std::uint64_t whole = 0;
    importOrders(context_, device_, importing::ordersFolder(options_),
                 [&](const Order& order, bool isWhole) {
                   whole += isWhole ? 1 : 0;
                   tell("order", {{"order", order.number()},
                                  {"name", validUTF8(order.description())},
                                  {"pictures", order.pictures().size()},
                                  {"whole", isWhole},
                                  {"fulfilled", isWhole && order.handle() != 0}});
                   return goesOn();
                 });
    return whole;
  }

  void endedBy(const Error& error, Json& done) {
    done["error"] = asJSON(failureOf(context_, error));
    isGone_ = isGone_ || error.endsDevice();
  }

  void remove(const Json& command) {
    for (const std::size_t id : idsOf(command)) {
      const Item& item = search_.items()[id];
      if (!isSafe_[id]) {
        keptOnDevice(item, "it was not imported here");
      } else if (item.object.isProtected()) {
        keptOnDevice(item, "it is protected");
      } else {
        device_.remove(item.object);
        isSafe_[id] = false;
        deleted(item);
      }
      if (!goesOn()) break;
    }
    tell("deletedAll", {{"cancelled", isCancelled_}});
  }

  void wantThumbnails(const Json& command) {
    // What is asked for last is what is looked at.
    const auto ids = idsOf(command);
    if (ids.empty()) return refuse("thumbnail", "no object of the list is meant");
    thumbnails_.insert(thumbnails_.begin(), ids.begin(), ids.end());
    constexpr std::size_t kMost = 1000;
    if (thumbnails_.size() > kMost) thumbnails_.resize(kMost);
  }

  void tellOneThumbnail() {
    const std::size_t id = thumbnails_.front();
    thumbnails_.pop_front();
    Json event = {{"id", id}};
    const auto preview = importing::previewOf(device_, search_.items()[id].object);
    if (preview) {
      event["width"] = preview->width;
      event["height"] = preview->height;
      event["pixels"] = base64(preview->pixels);
    } else {
      event["why"] = "it has no small picture";
    }
    tell("thumbnail", event);
  }

  /// Numbers of items; those that there are none of are left out.
  std::vector<std::size_t> idsOf(const Json& command, const char* key = "ids") const {
    std::vector<std::size_t> ids;
    const auto* const given = valueForKey(command, key);
    if (given == nullptr || !given->is_array()) return ids;
    const std::size_t most = search_.items().size();
    for (const auto& each : *given)
      if (each.is_number_unsigned() && each.get<std::uint64_t>() < most)
        ids.push_back(each.get<std::size_t>());
    return ids;
  }

  std::size_t idOf(const Item& item) const {
    return static_cast<std::size_t>(&item - search_.items().data());
  }

  void tellProgress(bool isDue) {
    const auto now = Clock::now();
    if (!isDue && now - lastTold_ < kPace) return;
    lastTold_ = now;
    pace_.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
    tell("progress", {{"id", current_},
                      {"files", pace_.files},
                      {"ofFiles", pace_.ofFiles},
                      {"bytes", pace_.bytes},
                      {"ofBytes", pace_.ofBytes},
                      {"rate", pace_.rate()},
                      {"secondsLeft", pace_.secondsLeft()}});
  }

  ToolContext& context_;
  Device& device_;
  importing::History* history_;
  importing::ImportOptions& options_;
  importing::Wanted wanted_;
  importing::Search search_;
  LineInput input_;
  std::deque<Json> commands_;           ///< not done yet
  std::deque<std::size_t> thumbnails_;  ///< asked for; the latest first
  std::vector<bool> isToldNew_;         ///< by item, as it was told last
  std::vector<bool> isSafe_;            ///< by item: fetched and secured here
  ImportPace pace_;
  std::uint64_t bytesBefore_ = 0;
  std::size_t current_ = 0;
  Clock::time_point started_;
  Clock::time_point lastTold_;
  bool isBusy_ = false;  ///< listing or fetching
  bool isCancelled_ = false;
  bool isLeaving_ = false;  ///< once all that was asked for is done
  bool isGone_ = false;
};

}  // namespace

int converse(ToolContext& context, Device& device, importing::History* history,
             importing::ImportOptions& options, importing::Wanted wanted) {
  return Conversation(context, device, history, options, std::move(wanted)).run();
}

}  // namespace tarvo::tools
