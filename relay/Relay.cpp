#include "relay/Relay.h"

#include <algorithm>
#include <utility>

#include "relay/ImportProgram.h"

namespace tarvo::relay {

Relay::Relay(std::string program, SessionObserver& observer, const ChildLimits& limits)
    : program_(std::move(program)), observer_(observer), limits_(limits) {}

Relay::~Relay() = default;

bool Relay::isIdle() const {
  if (!session_) return true;
  switch (session_->standing().state) {
    case SessionState::kDone:
    case SessionState::kFailed:
    case SessionState::kGone:
      return true;
    case SessionState::kReady:
      return !session_->mayImport() && session_->model().sums().news == 0;
    default:
      return false;
  }
}

void Relay::arrived(const Arrival& arrival) {
  const bool isNamed = !arrival.type.empty();
  if (!session_ || (isNamed && isIdle())) return begin(arrival);
  if (isNamed && arrival != arrival_) offered_ = arrival;
}

void Relay::devicesAre(std::vector<Arrival> devices) {
  const bool isFirst = !devices_;
  const auto before = std::exchange(devices_, std::move(devices)).value_or(std::vector<Arrival>());
  const auto isIn = [](const auto& all, const Arrival& one) {
    return std::ranges::find(all, one) != all.end();
  };
  if (offered_ && !isIn(*devices_, *offered_)) offered_.reset();
  for (const auto& device : *devices_) {
    if (isIn(before, device)) continue;
    // At first it is told of what was there before the window, and one of these has begun.
    if (!isFirst) {
      consider(device, true);
    } else if (arrival_.type.empty() ? isIdle() : device != arrival_) {
      consider(device, arrival_.type.empty());
    }
  }
}

void Relay::consider(const Arrival& newcomer, bool mayBegin) {
  if (mayBegin && isIdle()) return begin(newcomer);
  offered_ = newcomer;
}

void Relay::standingChanged() {
  if (offered_ && session_ && session_->standing().state == SessionState::kGone) accept();
}

void Relay::retry() {
  if (session_ && (session_->standing().state == SessionState::kFailed ||
                   session_->standing().state == SessionState::kGone))
    begin(Arrival(arrival_));
}

void Relay::accept() {
  if (offered_) begin(*std::exchange(offered_, std::nullopt));
}

void Relay::begin(const Arrival& arrival) {
  if (closed_) return;
  letGo();
  arrival_ = arrival;
  if (offered_ == arrival) offered_.reset();
  session_ =
      std::make_unique<ImportSession>(importWords(program_, arrival, true), observer_, limits_);
  isWaiting_ = !leaving_.empty();
  // What the observer knows is of the former one.
  observer_.rowsCleared();
  if (isWaiting_) return observer_.standingChanged();
  session_->begin();
}

void Relay::letGo() {
  if (!session_) return;
  auto* const session = session_.get();
  leaving_.push_back({.session = std::move(session_)});
  session->close([this, session] {
    for (auto& each : leaving_)
      each.isGone = each.isGone || each.session.get() == session;
    // It may be in the middle of a call.
    GSource* const source = g_idle_source_new();
    const auto run = +[](gpointer self) -> gboolean {
      static_cast<Relay*>(self)->sweep();
      return G_SOURCE_REMOVE;
    };
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, run, this, nullptr);
    g_source_attach(source, nullptr);
    sweeping_ = AttachedSource(source);
  });
}

void Relay::sweep() {
  std::erase_if(leaving_, [](const Leaving& each) { return each.isGone; });
  if (!leaving_.empty()) return;
  if (closed_) return std::exchange(closed_, {})();
  if (session_ && std::exchange(isWaiting_, false)) session_->begin();
}

void Relay::close(std::function<void()> ended) {
  closed_ = std::move(ended);
  letGo();
  if (leaving_.empty()) std::exchange(closed_, {})();
}

}  // namespace tarvo::relay
