#include "simulator/ptp/PTPResponder.h"

#include <algorithm>
#include <optional>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "simulator/ptp/DatasetOperations.h"
#include "simulator/ptp/ObjectOperations.h"
#include "simulator/ptp/PropertyOperations.h"
#include "simulator/ptp/SendingOperations.h"
#include "simulator/ptp/SessionOperations.h"
#include "simulator/ptp/VendorOperations.h"

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

/// The classes of operations.
struct PTPResponder::Themes {
  Themes(DeviceState& state, const OperationTable& offered)
      : session(state, offered),
        capturing(state),
        objects(state),
        changes(state),
        sending(state),
        properties(state),
        vendor(state),
        datasets(state) {}

  void addTo(OperationTable& table) {
    session.addTo(table);
    capturing.addTo(table);
    objects.addTo(table);
    changes.addTo(table);
    sending.addTo(table);
    properties.addTo(table);
    vendor.addTo(table);
    datasets.addTo(table);
  }

  SessionOperations session;
  CaptureOperations capturing;
  ObjectOperations objects;
  ObjectChanges changes;
  SendingOperations sending;
  PropertyOperations properties;
  VendorOperations vendor;
  DatasetOperations datasets;
};

PTPResponder::PTPResponder(const DeviceDescription& description)
    : state_(description), themes_(std::make_unique<Themes>(state_, offered_)) {
  themes_->addTo(known_);
  std::copy_if(known_.begin(), known_.end(), std::inserter(offered_, offered_.end()),
               [this](const auto& entry) { return offers(entry.first); });
}

PTPResponder::~PTPResponder() = default;

CaptureOperations& PTPResponder::capturing() {
  return themes_->capturing;
}

PropertyOperations& PTPResponder::properties() {
  return themes_->properties;
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
