#include "relay/ImportSession.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace tarvo::relay {
namespace {

/// Objects of one command "delete", so that it can be cancelled between.
constexpr std::size_t kDeletedAtOnce = 1000;

std::optional<std::uint64_t> numberOrNone(const PropertyDictionary& json, const char* key) {
  const auto* const value = valueForKey(json, key);
  if (value == nullptr || !value->is_number_unsigned()) return std::nullopt;
  return value->get<std::uint64_t>();
}

}  // namespace

/// What is done with an event.
struct ImportSession::Handler {
  std::string_view event;
  void (ImportSession::*handle)(const Json&);
};

ImportSession::ImportSession(std::vector<std::string> words, SessionObserver& observer,
                             const ChildLimits& limits)
    : words_(std::move(words)), observer_(observer), limits_(limits) {}

ImportSession::~ImportSession() = default;

void ImportSession::begin() {
  child_ = std::make_unique<Child>(static_cast<ChildListener&>(*this), limits_);
  child_->start(words_);
  observer_.standingChanged();
}

bool ImportSession::mayChoose() const {
  if (!standing_.isHere) return false;
  return is(State::kLooking) || is(State::kReady) || is(State::kDone);
}

bool ImportSession::mayImport() const {
  if (!standing_.isHere) return false;
  const bool hasOrders = standing_.orders > 0 && standing_.wantsOrders && is(State::kReady);
  return (is(State::kReady) || is(State::kDone)) && (model_.sums().chosen > 0 || hasOrders);
}

bool ImportSession::mayDelete() const {
  return standing_.isHere && is(State::kDone) && model_.sums().safe > 0;
}

void ImportSession::choose(std::size_t row, bool isChosen) {
  if (!mayChoose() || !model_.choose(row, isChosen)) return;
  observer_.rowChanged(row);
  observer_.standingChanged();
}

void ImportSession::chooseAll(bool isChosen) {
  if (!mayChoose()) return;
  for (std::size_t row = 0; row < model_.size(); ++row)
    if (model_.choose(row, isChosen)) observer_.rowChanged(row);
  observer_.standingChanged();
}

void ImportSession::setWantsOrders(bool wants) {
  standing_.wantsOrders = wants;
  observer_.standingChanged();
}

void ImportSession::import() {
  if (!mayImport()) return;
  say(model_.choice());
  Json command = {{"command", "start"}};
  if (standing_.orders > 0 && standing_.wantsOrders) command["orders"] = true;
  say(command);
  standing_.files = standing_.bytes = standing_.rate = standing_.secondsLeft = 0;
  standing_.fetched = standing_.known = standing_.failed = standing_.noRoom = 0;
  standing_.ofFiles = model_.sums().chosen;
  standing_.ofBytes = model_.sums().chosenBytes;
  standing_.problem.clear();
  standing_.advice.clear();
  standing_.notes.clear();
  enter(State::kImporting);
  observer_.standingChanged();
}

void ImportSession::cancel() {
  if (!is(State::kLooking) && !is(State::kImporting) && !is(State::kDeleting)) return;
  standing_.isCancelling = true;
  toDelete_.clear();
  say({{"command", "cancel"}});
  // It forgets them with that.
  thumbnails_.expectNone();
  observer_.standingChanged();
}

void ImportSession::deleteImported() {
  if (!mayDelete()) return;
  const auto ids = model_.safeIds();
  toDelete_.assign(ids.begin(), ids.end());
  standing_.deleted = standing_.kept = 0;
  enter(State::kDeleting);
  deleteSome();
  observer_.standingChanged();
}

void ImportSession::deleteSome() {
  Json ids = Json::array();
  while (!toDelete_.empty() && ids.size() < kDeletedAtOnce) {
    ids.push_back(toDelete_.front());
    toDelete_.pop_front();
  }
  if (ids.empty()) return enter(State::kDone);
  say({{"command", "delete"}, {"ids", std::move(ids)}});
}

void ImportSession::close(std::function<void()> ended) {
  if (!child_ || !child_->isRunning()) return ended();
  closed_ = std::move(ended);
  child_->close();
}

void ImportSession::look(const std::vector<std::size_t>& rows) {
  std::vector<std::uint64_t> ids;
  ids.reserve(rows.size());
  for (const std::size_t row : rows)
    ids.push_back(model_.at(row).id);
  thumbnails_.wish(std::move(ids));
  askForThumbnails();
}

void ImportSession::askForThumbnails() {
  const bool canAnswer = mayChoose() || is(State::kImporting) || is(State::kDeleting);
  if (!canAnswer || standing_.isCancelling) return;
  if (const auto ids = thumbnails_.next(); !ids.empty())
    say({{"command", "thumbnail"}, {"ids", ids}});
}

void ImportSession::say(const Json& command) {
  child_->say(command);
  child_->setWorking(true);
}

void ImportSession::enter(State state) {
  standing_.state = state;
  standing_.isCancelling = false;
  isChanged_ = true;
}

void ImportSession::heard(const std::string& event, const Json& json) {
  if (closed_) return;
  using Self = ImportSession;
  static constexpr auto kHandlers = std::to_array<Handler>({
      {"hello", &Self::hello},
      {"looking", &Self::looking},
      {"object", &Self::object},
      {"listed", &Self::listed},
      {"started", &Self::started},
      {"progress", &Self::progress},
      {"fetched", &Self::fetched},
      {"known", &Self::known},
      {"failed", &Self::failed},
      {"noRoom", &Self::noRoom},
      {"safe", &Self::safe},
      {"deleted", &Self::deleted},
      {"orderPicture", &Self::orderPicture},
      {"kept", &Self::kept},
      {"done", &Self::done},
      {"deletedAll", &Self::deletedAll},
      {"warning", &Self::warning},
      {"unreadable", &Self::unreadable},
      {"error", &Self::error},
      {"refused", &Self::refused},
      {"gone", &Self::gone},
      {"thumbnail", &Self::thumbnailCame},
  });
  const auto* const handler = std::ranges::find(kHandlers, event, &Handler::event);
  // A later import may tell more than this window knows.
  if (handler != kHandlers.end()) (this->*handler->handle)(json);
}

void ImportSession::turnEnded() {
  if (closed_) return;
  if (model_.size() > rowsTold_) observer_.rowsAdded(std::exchange(rowsTold_, model_.size()));
  askForThumbnails();
  child_->setWorking(is(State::kConnecting) || is(State::kLooking) || is(State::kImporting) ||
                     is(State::kDeleting) || thumbnails_.isWaiting());
  if (std::exchange(isChanged_, false)) observer_.standingChanged();
}

void ImportSession::hello(const Json& json) {
  if (!is(State::kConnecting)) return;
  if (const auto* const device = valueForKey(json, "device"))
    standing_.device = textIn(*device, "name", 100);
  standing_.folder = textForKey(json, "folder").value_or("");
  standing_.free = numberOrNone(json, "free");
  standing_.battery = numberOrNone(json, "battery");
  if (standing_.battery > 100) standing_.battery.reset();
  standing_.orders = numberIn(json, "orders");
  enter(State::kLooking);
  say({{"command", "list"}});
}

void ImportSession::looking(const Json& json) {
  standing_.looked = numberIn(json, "objects");
  isChanged_ = true;
}

void ImportSession::object(const Json& json) {
  // At another time it would be chosen behind the person's back.
  if (!is(State::kLooking)) return;
  const auto row = model_.take(json);
  if (row && *row < rowsTold_) observer_.rowChanged(*row);
  isChanged_ = true;
}

void ImportSession::listed(const Json&) {
  if (is(State::kLooking)) enter(State::kReady);
}

void ImportSession::started(const Json& json) {
  standing_.ofFiles = numberIn(json, "files");
  standing_.ofBytes = numberIn(json, "bytes");
  if (const auto free = numberOrNone(json, "free")) standing_.free = free;
  isChanged_ = true;
}

void ImportSession::progress(const Json& json) {
  standing_.files = numberIn(json, "files");
  standing_.ofFiles = numberIn(json, "ofFiles");
  standing_.bytes = numberIn(json, "bytes");
  standing_.ofBytes = numberIn(json, "ofBytes");
  standing_.rate = numberIn(json, "rate");
  standing_.secondsLeft = numberIn(json, "secondsLeft");
  isChanged_ = true;
}

void ImportSession::mark(const Json& json, Picture::State state) {
  isChanged_ = true;
  const auto id = numberOrNone(json, "id");
  const auto row = id ? model_.rowOf(*id) : std::nullopt;
  if (!row) return;
  model_.setState(*row, state);
  if (*row < rowsTold_) observer_.rowChanged(*row);
}

void ImportSession::fetched(const Json& json) {
  ++standing_.fetched;
  mark(json, Picture::State::kFetched);
}

void ImportSession::known(const Json& json) {
  ++standing_.known;
  mark(json, Picture::State::kKnown);
}

void ImportSession::failed(const Json& json) {
  ++standing_.failed;
  note(standing_.notes, textIn(json, "why"));
  mark(json, Picture::State::kFailed);
}

void ImportSession::noRoom(const Json& json) {
  ++standing_.noRoom;
  mark(json, Picture::State::kNoRoom);
}

void ImportSession::safe(const Json& json) {
  mark(json, Picture::State::kSafe);
}

void ImportSession::deleted(const Json& json) {
  ++standing_.deleted;
  mark(json, Picture::State::kDeleted);
}

void ImportSession::kept(const Json& json) {
  ++standing_.kept;
  note(standing_.notes, textIn(json, "why"));
  mark(json, Picture::State::kFetched);
}

void ImportSession::orderPicture(const Json& json) {
  const auto* const problem = valueForKey(json, "error");
  if (problem == nullptr) return;
  note(standing_.notes, textIn(*problem, "message"));
  isChanged_ = true;
}

void ImportSession::done(const Json& json) {
  if (!is(State::kImporting)) return;
  standing_.fetched = numberIn(json, "fetched");
  standing_.known = numberIn(json, "known");
  standing_.failed = numberIn(json, "failed");
  standing_.noRoom = numberIn(json, "noRoom");
  standing_.ordersDone = numberIn(json, "orders");
  standing_.wasCancelled = isTrueIn(json, "cancelled");
  if (const auto* const problem = valueForKey(json, "error")) takeProblem(*problem);
  if (!standing_.wasCancelled) standing_.orders -= std::min(standing_.orders, standing_.ordersDone);
  enter(State::kDone);
}

void ImportSession::deletedAll(const Json&) {
  if (is(State::kDeleting)) deleteSome();
}

void ImportSession::note(std::vector<std::string>& notes, std::string text) {
  if (text.empty() || std::ranges::find(notes, text) != notes.end()) return;
  if (notes.size() == kMostNotes) notes.erase(notes.begin());
  notes.push_back(std::move(text));
}

void ImportSession::warning(const Json& json) {
  note(standing_.notes, textIn(json, "text"));
  isChanged_ = true;
}

void ImportSession::unreadable(const Json& json) {
  note(standing_.unreadable, textIn(json, "message"));
  isChanged_ = true;
}

void ImportSession::takeProblem(const Json& json) {
  standing_.advice = textIn(json, "advice");
  standing_.problem = textIn(json, "message");
  if (standing_.problem.empty()) standing_.problem = textIn(json, "why");
}

void ImportSession::error(const Json& json) {
  takeProblem(json);
  // Those of the others end nothing that the person waits for.
  if (is(State::kConnecting) || is(State::kLooking)) return enter(State::kFailed);
  toDelete_.clear();
  if (is(State::kImporting) || is(State::kDeleting)) enter(State::kDone);
}

void ImportSession::refused(const Json& json) {
  const auto command = textForKey(json, "command");
  if (command == "thumbnail") return thumbnails_.expectNone();
  note(standing_.notes, textIn(json, "why"));
  if (command == "start" && is(State::kImporting)) enter(State::kReady);
  if (command == "list" && is(State::kLooking)) enter(State::kFailed);
  if (command == "delete" && is(State::kDeleting)) enter(State::kDone);
  isChanged_ = true;
}

void ImportSession::gone(const Json&) {
  toDelete_.clear();
  standing_.isHere = false;
  isChanged_ = true;
  // To unplug it is what people do then.
  if (is(State::kDone)) return;
  standing_.wasCut = is(State::kImporting) || is(State::kDeleting);
  enter(State::kGone);
}

void ImportSession::thumbnailCame(const Json& json) {
  const auto id = thumbnails_.take(json);
  const auto row = id ? model_.rowOf(*id) : std::nullopt;
  if (row && *row < rowsTold_) observer_.thumbnailCame(*row);
}

void ImportSession::ended(const ChildEnd& end) {
  if (closed_) return std::exchange(closed_, {})();
  if (is(State::kFailed) || !standing_.isHere) return;
  standing_.end = end.kind;
  // What the import itself has told says more than what it wrote on its way out.
  if (standing_.problem.empty()) standing_.problem = end.words;
  enter(State::kFailed);
  isChanged_ = false;
  observer_.standingChanged();
}

}  // namespace tarvo::relay
