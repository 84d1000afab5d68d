#include "tools/import/Conversation.h"

#include <glib.h>
#include <poll.h>

#include <algorithm>
#include <utility>

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
#include "tools/orders/ImportOrders.h"
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

PropertyDictionary asJSON(std::size_t id, const Item& item) {
  PropertyDictionary json = {{"event", "object"},
                             {"id", id},
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
  gchar* const text = g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  std::string result = text;
  g_free(text);
  return result;
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

}  // namespace

Conversation::Conversation(ToolContext& context, Device& device, importing::History* history,
                           importing::ImportOptions& options, importing::Wanted wanted)
    : context_(context),
      device_(device),
      history_(history),
      options_(options),
      wanted_(std::move(wanted)),
      search_(device, history, options, *this),
      input_(::fileno(context.input)) {}

int Conversation::run() {
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
  if (isGone_) tell({{"event", "gone"}});
  if (isAlone()) return kDone;
  return isGone_ ? kFailed : int{kInterrupted};
}

void Conversation::tell(const Json& event) {
  context_.output.text(jsonText(event, -1) + "\n");
}

void Conversation::hello() {
  Json event = {{"event", "hello"},
                {"protocol", kProtocol},
                {"device", asJSON(device_.info())},
                {"folder", validUTF8(options_.folder)}};
  if (const auto here = fileSystemSizeOf(options_.folder)) event["free"] = here->free;
  addWhatACameraTells(device_, event);
  tell(event);
}

void Conversation::listen() {
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

void Conversation::obey(const Json& command) {
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
      tell({{"event", "clock"}});
    } else {
      refuse(name, "there is no such command");
    }
  } catch (const Error& error) {
    Json event = asJSON(failureOf(context_, error));
    event["event"] = "error";
    tell(event);
    isGone_ = isGone_ || error.endsDevice();
  } catch (const importing::HistoryError& error) {
    tell({{"event", "error"}, {"message", error.what()}});
  }
  isBusy_ = false;
}

void Conversation::refuse(const std::string& command, const std::string& why) {
  tell({{"event", "refused"}, {"command", validUTF8(command)}, {"why", why}});
}

void Conversation::list() {
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
    if (items[id].isToFetch() != isToldNew_[id]) tell(asJSON(id, items[id]));
    if (!items[id].isToFetch()) continue;
    ++news;
    bytes += items[id].object.size();
  }
  tell({{"event", "listed"},
        {"objects", items.size()},
        {"new", news},
        {"bytes", bytes},
        {"cancelled", isCancelled_}});
}

void Conversation::choose(const Json& command) {
  const auto what = textForKey(command, "what");
  if (what && *what != "new" && *what != "none") return refuse("choose", "what is new, or none");
  auto& items = search_.items();
  for (auto& item : items)
    item.isChosen = what == "new";
  for (const std::size_t id : idsOf(command))
    items[id].isChosen = true;
  for (const std::size_t id : idsOf(command, "except"))
    items[id].isChosen = false;
  tell({{"event", "chosen"}, {"objects", std::ranges::count_if(items, &Item::isToFetch)}});
}

void Conversation::start(const Json& command) {
  options_.verifies = isTrue(command, "verify");
  options_.deletes = isTrue(command, "delete");
  pace_ = {};
  for (const auto& item : search_.items()) {
    if (!item.isToFetch()) continue;
    ++pace_.ofFiles;
    pace_.ofBytes += item.object.size();
  }
  Json begun = {{"event", "started"}, {"files", pace_.ofFiles}, {"bytes", pace_.ofBytes}};
  if (const auto here = fileSystemSizeOf(options_.folder)) begun["free"] = here->free;
  tell(begun);
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
  tell(done);
}

Conversation::Json Conversation::fetch() {
  importing::ImportSum sum;
  Json done = {{"event", "done"}, {"folder", validUTF8(options_.folder)}};
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

std::uint64_t Conversation::fetchOrders() {
  std::uint64_t whole = 0;
  importOrders(context_, device_, importing::ordersFolder(options_),
               [&](const Order& order, bool isWhole) {
                 whole += isWhole ? 1 : 0;
                 tell({{"event", "order"},
                       {"order", order.number()},
                       {"name", validUTF8(order.description())},
                       {"pictures", order.pictures().size()},
                       {"whole", isWhole},
                       {"fulfilled", isWhole && order.handle() != 0}});
                 return goesOn();
               });
  return whole;
}

void Conversation::endedBy(const Error& error, Json& done) {
  done["error"] = asJSON(failureOf(context_, error));
  isGone_ = isGone_ || error.endsDevice();
}

void Conversation::remove(const Json& command) {
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
  tell({{"event", "deletedAll"}, {"cancelled", isCancelled_}});
}

void Conversation::wantThumbnails(const Json& command) {
  // What is asked for last is what is looked at.
  const auto ids = idsOf(command);
  if (ids.empty()) return refuse("thumbnail", "no object of the list is meant");
  thumbnails_.insert(thumbnails_.begin(), ids.begin(), ids.end());
  constexpr std::size_t kMost = 1000;
  if (thumbnails_.size() > kMost) thumbnails_.resize(kMost);
}

void Conversation::tellOneThumbnail() {
  const std::size_t id = thumbnails_.front();
  thumbnails_.pop_front();
  Json event = {{"event", "thumbnail"}, {"id", id}};
  const auto preview = importing::previewOf(device_, search_.items()[id].object);
  if (preview) {
    event["width"] = preview->width;
    event["height"] = preview->height;
    event["pixels"] = base64(preview->pixels);
  } else {
    event["why"] = "it has no small picture";
  }
  tell(event);
}

std::vector<std::size_t> Conversation::idsOf(const Json& command, const char* key) const {
  std::vector<std::size_t> ids;
  const auto* const given = valueForKey(command, key);
  if (given == nullptr || !given->is_array()) return ids;
  const std::size_t most = search_.items().size();
  for (const auto& each : *given)
    if (each.is_number_unsigned() && each.get<std::uint64_t>() < most)
      ids.push_back(each.get<std::size_t>());
  return ids;
}

bool Conversation::goesOn() {
  listen();
  return !isCancelled_ && !isAlone() && !context_.interrupt.isSet();
}

void Conversation::pauses() {
  for (int count = 0; count < kThumbnailsAtOnce && !thumbnails_.empty(); ++count)
    tellOneThumbnail();
}

void Conversation::looked(std::uint64_t objects) {
  if (Clock::now() - lastTold_ < kPace) return;
  lastTold_ = Clock::now();
  tell({{"event", "looking"}, {"objects", objects}});
}

void Conversation::found(const Item& item) {
  tell(asJSON(idOf(item), item));
  isToldNew_.push_back(item.isToFetch());
  isSafe_.push_back(false);
}

void Conversation::unreadable(const std::string& path, const Error& error) {
  Json event = asJSON(failureOf(context_, error, path));
  event["event"] = "unreadable";
  tell(event);
}

std::size_t Conversation::idOf(const Item& item) const {
  return static_cast<std::size_t>(&item - search_.items().data());
}

void Conversation::begins(const Item& item) {
  bytesBefore_ = pace_.bytes;
  current_ = idOf(item);
}

void Conversation::progressed(const Item& /*item*/, std::uint64_t done) {
  pace_.bytes = bytesBefore_ + done;
  tellProgress(false);
}

void Conversation::tellProgress(bool isDue) {
  const auto now = Clock::now();
  if (!isDue && now - lastTold_ < kPace) return;
  lastTold_ = now;
  pace_.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
  tell({{"event", "progress"},
        {"id", current_},
        {"files", pace_.files},
        {"ofFiles", pace_.ofFiles},
        {"bytes", pace_.bytes},
        {"ofBytes", pace_.ofBytes},
        {"rate", pace_.rate()},
        {"secondsLeft", pace_.secondsLeft()}});
}

void Conversation::ended(const Item& item, const importing::Result& result) {
  using importing::Outcome;
  ++pace_.files;
  pace_.bytes = bytesBefore_ + item.object.size();
  Json event = {{"id", idOf(item)}};
  if (!result.path.empty()) event["path"] = validUTF8(result.path);
  switch (result.outcome) {
    case Outcome::kFetched:
      event["event"] = "fetched";
      break;
    case Outcome::kKnown:
      event["event"] = "known";
      break;
    case Outcome::kFailed:
    case Outcome::kNoRoom:
      event["event"] = result.outcome == Outcome::kNoRoom ? "noRoom" : "failed";
      event["why"] = validUTF8(result.why);
      if (result.error) event["error"] = asJSON(failureOf(context_, *result.error));
  }
  tell(event);
  tellProgress(false);
}

void Conversation::secured(const Item& item, const std::string& path) {
  isSafe_[idOf(item)] = true;
  tell({{"event", "safe"}, {"id", idOf(item)}, {"path", validUTF8(path)}});
}

void Conversation::deleted(const Item& item) {
  tell({{"event", "deleted"}, {"id", idOf(item)}});
}

void Conversation::keptOnDevice(const Item& item, const std::string& why) {
  tell({{"event", "kept"}, {"id", idOf(item)}, {"why", why}});
}

void Conversation::warned(const std::string& text) {
  tell({{"event", "warning"}, {"text", validUTF8(text)}});
}

}  // namespace tarvo::tools
