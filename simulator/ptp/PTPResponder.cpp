#include "simulator/ptp/PTPResponder.h"

#include <algorithm>
#include <optional>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kFirstVendorOperation = 0x9000;

bool contains(const std::vector<std::uint16_t>& codes, std::uint16_t code) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

/// What refuses a request for an object that the device does not know yet; none for others.
std::optional<std::uint16_t> unknownObject(const DeviceState& state, const PTPRequest& request) {
  const auto refusal = [&](unsigned parameter, std::uint16_t code) -> std::optional<std::uint16_t> {
    if (state.knows(request.parameters.at(parameter))) return std::nullopt;
    return code;
  };
  switch (request.operation) {
    case ptp::kGetObjectInfo:
    case ptp::kGetObject:
    case ptp::kGetPartialObject:
    case ptp::kGetThumb:
    case ptp::kDeleteObject:
      return refusal(0, kInvalidObjectHandle);
    case ptp::kSendObjectInfo:
      return refusal(1, kInvalidParentObject);
    case ptp::kGetObjectHandles:
      return refusal(2, kInvalidParentObject);
    default:
      return std::nullopt;
  }
}

/// Nothing where the number of parameters is one that the operation has.
std::vector<std::string> parameterComplaints(const PTPRequest& request,
                                             const Operation& operation) {
  if (request.parameterCount >= operation.minimumParameters &&
      request.parameterCount <= operation.maximumParameters) {
    return {};
  }
  return {formatted("operation 0x%04X: %u to %u parameters were expected, got %u",
                    request.operation, operation.minimumParameters, operation.maximumParameters,
                    request.parameterCount)};
}

}  // namespace

PTPResponder::PTPResponder(const DeviceDescription& description)
    : state_(description),
      session_(state_, offered_),
      capturing_(state_),
      objects_(state_),
      changes_(state_),
      sending_(state_),
      properties_(state_),
      vendor_(state_),
      datasets_(state_) {
  session_.addTo(known_);
  capturing_.addTo(known_);
  objects_.addTo(known_);
  changes_.addTo(known_);
  sending_.addTo(known_);
  properties_.addTo(known_);
  vendor_.addTo(known_);
  datasets_.addTo(known_);
  std::copy_if(known_.begin(), known_.end(), std::inserter(offered_, offered_.end()),
               [this](const auto& entry) { return offers(entry.first); });
}

// A device does what it says that it can do, and nothing else.
bool PTPResponder::offers(std::uint16_t operation) const {
  const auto& listed = state_.description.info.operations;
  if (listed) return contains(*listed, operation);
  return operation < kFirstVendorOperation ||
         contains(offeredVendorOperations(state_.description), operation);
}

DataDirection PTPResponder::direction(std::uint16_t operation) const {
  const auto found = known_.find(operation);
  return found == known_.end() ? DataDirection::kNone : found->second.direction;
}

PTPReply PTPResponder::execute(const PTPRequest& request) {
  const auto found = offered_.find(request.operation);
  if (found == offered_.end()) return refuse(kOperationNotSupported);
  auto complaints = parameterComplaints(request, found->second);
  PTPReply made;
  if (found->second.needsSession && !hasSession()) {
    made = refuse(kSessionNotOpen);
    complaints.push_back(formatted("operation 0x%04X without a session", request.operation));
  } else if (const auto code = unknownObject(state_, request)) {
    made = refuse(*code);
  } else {
    made = found->second.run(request);
  }
  made.complaints.insert(made.complaints.begin(), complaints.begin(), complaints.end());
  return made;
}

}  // namespace tarvo::simulator
