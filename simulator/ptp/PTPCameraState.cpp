// What others than the host see of a camera, and do to it.
#include <utility>

#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {

std::string PTPCamera::setFault(std::string_view name, std::string_view value) {
  const std::lock_guard guard(lock());
  return faults_.set(name, value);
}

std::vector<std::uint16_t> PTPCamera::operations() const {
  const std::lock_guard guard(lock());
  return operations_;
}

WireCounts PTPCamera::counts() const {
  const std::lock_guard guard(lock());
  return counts_;
}

std::vector<std::string> PTPCamera::violations() const {
  const std::lock_guard guard(lock());
  return violations_.list();
}

void PTPCamera::forgetViolations() {
  const std::lock_guard guard(lock());
  violations_.clear();
}

std::optional<StoredObject> PTPCamera::object(std::uint32_t handle) const {
  const std::lock_guard guard(lock());
  return responder_.state().objects.object(handle);
}

std::shared_ptr<const Payload> PTPCamera::content(std::uint32_t handle) const {
  const auto found = object(handle);
  return found && !found->isFolder() ? ObjectStore::content(*found) : nullptr;
}

Bytes PTPCamera::bytes(std::uint32_t handle) const {
  const auto payload = content(handle);
  return payload ? allBytes(*payload) : Bytes();
}

std::vector<std::uint32_t> PTPCamera::handles(const ObjectFilter& filter) const {
  const std::lock_guard guard(lock());
  return responder_.state().objects.handles(filter);
}

std::uint64_t PTPCamera::freeSpace(std::uint32_t storage) const {
  const std::lock_guard guard(lock());
  const auto* store = responder_.state().objects.store(storage);
  return store == nullptr ? 0 : store->free;
}

Bytes PTPCamera::displayRequest() const {
  const std::lock_guard guard(lock());
  return responder_.state().displayRequest;
}

nlohmann::json PTPCamera::propertyValue(std::uint16_t code) const {
  const std::lock_guard guard(lock());
  for (const auto& property : responder_.state().description.properties) {
    if (property.code == code) return property.value;
  }
  return nullptr;
}

void PTPCamera::sendEvent(std::uint16_t code, const std::vector<std::uint32_t>& parameters) {
  {
    const std::lock_guard guard(lock());
    queueEvent({code, parameters});
  }
  tellActivity();
}

std::uint32_t PTPCamera::addObject(StoredObject object) {
  std::uint32_t handle = 0;
  {
    const std::lock_guard guard(lock());
    auto& objects = responder_.state().objects;
    if (object.storage == 0 && !objects.stores().empty()) {
      object.storage = objects.stores().front().description.id;
    }
    const auto folder = objects.object(object.parent);
    const bool placed = object.parent == 0 || (folder && folder->isFolder());
    if (objects.store(object.storage) == nullptr || !placed) return 0;
    handle = objects.add(std::move(object));
    queueEvent({kObjectAdded, {handle}});
  }
  tellActivity();
  return handle;
}

bool PTPCamera::removeObject(std::uint32_t handle) {
  {
    const std::lock_guard guard(lock());
    auto& state = responder_.state();
    const auto found = state.objects.object(handle);
    if (!found || state.objects.remove(handle).removed == 0) return false;
    state.datasets.forget(*found);
    queueEvent({kObjectRemoved, {handle}});
  }
  tellActivity();
  return true;
}

std::uint32_t PTPCamera::capture(std::uint32_t storage) {
  PTPReply made;
  {
    const std::lock_guard guard(lock());
    made = responder_.capturing().capture(storage);
    for (const auto& event : made.events)
      queueEvent(event);
  }
  tellActivity();
  return made.events.empty() ? 0 : made.events.front().parameters.front();
}

bool PTPCamera::changeProperty(std::uint16_t code, const nlohmann::json& value) {
  {
    const std::lock_guard guard(lock());
    auto* property = responder_.properties().property(code);
    if (property == nullptr) return false;
    property->value = value;
    queueEvent({kDevicePropChanged, {code}});
  }
  tellActivity();
  return true;
}

}  // namespace tarvo::simulator
