// What others than the host see of a unit, and do to it.
#include "simulator/massstorage/MassStorageUnit.h"

namespace tarvo::simulator {

std::string MassStorageUnit::setFault(std::string_view name, std::string_view value) {
  const std::lock_guard guard(lock());
  return faults_.set(name, value);
}

std::vector<std::string> MassStorageUnit::violations() const {
  const std::lock_guard guard(lock());
  return violations_.list();
}

void MassStorageUnit::forgetViolations() {
  const std::lock_guard guard(lock());
  violations_.clear();
}

std::vector<UnitCommand> MassStorageUnit::commands() const {
  const std::lock_guard guard(lock());
  return {commands_.begin(), commands_.end()};
}

void MassStorageUnit::forgetCommands() {
  const std::lock_guard guard(lock());
  commands_.clear();
}

UnitState MassStorageUnit::state() const {
  const std::lock_guard guard(lock());
  return unit_.state();
}

bool MassStorageUnit::powersDown() const {
  const std::lock_guard guard(lock());
  return unit_.powersDown();
}

bool MassStorageUnit::returnsAsCamera() const {
  const std::lock_guard guard(lock());
  return unit_.returnsAsCamera();
}

std::optional<std::uint8_t> MassStorageUnit::reportedStatus() const {
  const std::lock_guard guard(lock());
  const auto status = faults_.amount(Fault::kStatus);
  if (!status) return std::nullopt;
  return static_cast<std::uint8_t>(*status);
}

}  // namespace tarvo::simulator
