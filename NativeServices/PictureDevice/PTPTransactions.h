// What can be sent to a PTP device: one method an operation. The device classes implement it;
// everything that is built on the operations takes this face, and tests script it.
#pragma once

#include <cstdint>
#include <optional>

#include "NativeServices/PictureDevice/DeviceCapabilities.h"
#include "NativeServices/PictureDevice/XTPTPDataSet.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

/// Main thread only. A status is 0, the PTP response code of the device, or 0x2002 where no
/// response arrived, 0x2003 without an Image Capture object and 0x2005 for an operation that the
/// device does not offer.
///
/// Each call is one transaction, which blocks until it has ended; what is said to be read once is
/// kept.
class PTPTransactions {
 public:
  virtual ~PTPTransactions() = default;

  /// GetDeviceInfo (0x1001); on success `record` becomes the transaction's record.
  /// Needs no session (ISO 15740, GetDeviceInfo).
  virtual Status getDeviceInfo(PTPPassThroughRecord& record) = 0;

  /// XTO_GET_SUPPORTED_DATASETS (0x920A): the vendor data set formats that the device knows; empty
  /// when it does not list the operation. Read once. Raises XTPTPException, with the status under
  /// "ptpResponseCode", when the transaction fails.
  virtual const CodeList& supportedDatasets() = 0;

  /// XT_GET_DISPLAY_REQUEST_VERSION (0x9009); 0 on a device without a back display. Raises like
  /// supportedDatasets().
  virtual std::uint16_t displayRequestVersion() = 0;

  /// Whether XTO_GET_LCB_INFO (0x900C) is listed and answered with OK.
  virtual bool doesLCBInfoWork() = 0;

  /// GetDevicePropDesc (0x1014) as a reader of the received bytes, little-endian; none when the
  /// device does not list the property or the transaction fails.
  virtual std::optional<XTPTPDataSet> propertyDataSet(std::uint16_t property) = 0;
};

}  // namespace tarvo
