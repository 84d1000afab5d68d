#include "platform/iokit/SCSIUnitAssembly.h"

#include <algorithm>

namespace tarvo {

SCSIUnitAssembly::~SCSIUnitAssembly() {
  for (const Waiting& each : waiting_)
    each.timer->invalidate();
}

void SCSIUnitAssembly::unitSeen(std::string_view unit, bool wantsBlock) {
  waitingFor(unit, wantsBlock);
}

void SCSIUnitAssembly::nodeSeen(std::string_view unit, bool wantsBlock, Node node) {
  Waiting& waiting = waitingFor(unit, wantsBlock);
  (node == Node::kGeneric ? waiting.hasGeneric : waiting.hasBlock) = true;
  // Clients open the generic node and name the unit by its disk, so both are needed.
  const bool isWhole = waiting.hasBlock || !waiting.wantsBlock || !waiting.timer->isValid();
  if (waiting.hasGeneric && isWhole) finish(waiting.unit);
}

void SCSIUnitAssembly::unitGone(std::string_view unit) {
  std::erase_if(waiting_, [&](const Waiting& each) {
    if (each.unit != unit) return false;
    each.timer->invalidate();
    return true;
  });
}

bool SCSIUnitAssembly::isWaiting(std::string_view unit) const {
  return std::ranges::find(waiting_, unit, &Waiting::unit) != waiting_.end();
}

SCSIUnitAssembly::Waiting& SCSIUnitAssembly::waitingFor(std::string_view unit, bool wantsBlock) {
  const auto known = std::ranges::find(waiting_, unit, &Waiting::unit);
  if (known != waiting_.end()) return *known;
  // The timer outlives the view.
  const std::string name(unit);
  auto timer = runLoop_.scheduleTimer(kPatience, true, [this, name] { tick(name); });
  return waiting_.emplace_back(
      Waiting{.unit = name, .wantsBlock = wantsBlock, .timer = std::move(timer)});
}

bool SCSIUnitAssembly::isOutOfPatience(const Waiting& waiting) const {
  const bool isComing = (!waiting.hasGeneric && isMade_(waiting.unit, Node::kGeneric)) ||
                        (!waiting.hasBlock && isMade_(waiting.unit, Node::kBlock));
  return !isComing || waiting.waited >= kPatienceWithUdev;
}

void SCSIUnitAssembly::tick(const std::string& unit) {
  const auto waiting = std::ranges::find(waiting_, unit, &Waiting::unit);
  waiting->waited += kPatience;
  if (!isOutOfPatience(*waiting)) return;
  waiting->timer->invalidate();
  if (waiting->hasGeneric || isMade_(unit, Node::kGeneric)) finish(unit);
}

void SCSIUnitAssembly::finish(std::string_view unit) {
  const auto found = std::ranges::find(waiting_, unit, &Waiting::unit);
  const Waiting finished = std::move(*found);  // which `unit` may lie in
  waiting_.erase(found);
  // Before the call, which may take long: the unit is not to be finished twice.
  finished.timer->invalidate();
  complete_(finished.unit);
}

}  // namespace tarvo
