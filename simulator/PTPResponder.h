// The PTP side of a virtual camera: a table of operations, each answered from the description and
// the object store. New operations are one line of the table and one member function.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "simulator/DeviceDescription.h"
#include "simulator/ObjectStore.h"
#include "simulator/PacketQueue.h"

namespace tarvo::simulator {

/// Where the one data phase goes that an operation may have (ISO 15740).
enum class DataDirection { kNone, kFromDevice, kToDevice };

/// A command container, and the data container behind it where there is one.
struct PTPRequest {
  std::uint16_t operation = 0;
  std::uint32_t transactionID = 0;
  std::array<std::uint32_t, 5> parameters{};  ///< what the host left out is 0
  unsigned parameterCount = 0;
  Bytes data;  ///< what the host sent in the data phase
};

/// What goes back: the data phase first, then the response container.
struct PTPReply {
  std::uint16_t code = 0x2001;  ///< OK, or the response code that refuses
  std::vector<std::uint32_t> parameters;
  std::shared_ptr<const Payload> data;  ///< data phase from the device; null: none
};

/// Knows nothing of containers and packets. Not locked: PTPCamera calls it under its own lock.
class PTPResponder {
 public:
  /// Keeps a copy of `description`, whose property values the host may change.
  explicit PTPResponder(const DeviceDescription& description);

  /// Where the data phase of an operation goes; none for an operation that is not known.
  DataDirection direction(std::uint16_t operation) const;
  /// Answers a whole request. Operations that are not in the table, that need a session that is not
  /// open, or whose parameters name nothing get the response code that ISO 15740 has for that.
  PTPReply execute(const PTPRequest& request);

  bool hasSession() const { return session_ != 0; }
  /// As after a reset: the session is closed without an operation.
  void forgetSession() { session_ = 0; }

 private:
  using Member = PTPReply (PTPResponder::*)(const PTPRequest&);
  struct Operation {
    DataDirection direction = DataDirection::kNone;
    bool needsSession = true;
    Member run = nullptr;
  };
  using Table = std::map<std::uint16_t, Operation>;
  static const Table& standardOperations();
  void addVendorOperations();

  PTPReply getDeviceInfo(const PTPRequest& request);
  PTPReply openSession(const PTPRequest& request);
  PTPReply closeSession(const PTPRequest& request);
  PTPReply getStorageIDs(const PTPRequest& request);
  PTPReply getStorageInfo(const PTPRequest& request);
  PTPReply getNumObjects(const PTPRequest& request);
  PTPReply getObjectHandles(const PTPRequest& request);
  PTPReply getObjectInfo(const PTPRequest& request);
  PTPReply getObject(const PTPRequest& request);
  PTPReply getPartialObject(const PTPRequest& request);
  PTPReply getThumb(const PTPRequest& request);
  PTPReply getDevicePropDesc(const PTPRequest& request);
  PTPReply getDevicePropValue(const PTPRequest& request);
  PTPReply setDevicePropValue(const PTPRequest& request);
  PTPReply getSupportedDatasets(const PTPRequest& request);
  PTPReply getDisplayRequestVersion(const PTPRequest& request);
  PTPReply getBragbookVersion(const PTPRequest& request);
  PTPReply getLCBInfo(const PTPRequest& request);

  /// Codes for DeviceInfo: those of the description, or all of the table.
  std::vector<std::uint16_t> operations() const;
  /// The filter of GetNumObjects and GetObjectHandles, or the response code that refuses it.
  std::uint16_t filterFor(const PTPRequest& request, ObjectFilter& filter) const;
  // Null where there is none of that id or code.
  const StoreDescription* store(std::uint32_t id) const;
  PropertyDescription* property(std::uint32_t code);

  DeviceDescription description_;
  ObjectStore objects_;
  Table table_;                ///< what this device answers
  std::uint32_t session_ = 0;  ///< id of the open session; 0: none
};

}  // namespace tarvo::simulator
