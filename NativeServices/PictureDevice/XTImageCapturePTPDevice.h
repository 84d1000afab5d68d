// A camera or frame that speaks PTP: every transaction is one pass-through message to its Image
// Capture object.
#pragma once

#include <memory>
#include <optional>

#include "NativeServices/PictureDevice/PTPTransactions.h"
#include "NativeServices/PictureDevice/XTImageCaptureDevice.h"

namespace tarvo {

/// Main thread only.
///
/// The lists are those of the DeviceInfo, in its order. Nothing is asked twice during one arrival.
class XTImageCapturePTPDevice : public XTImageCaptureDevice, public PTPTransactions {
 public:
  /// A device bound to `object` and loaded; null, with the status in `*failure` (where given), when
  /// it cannot be read. Raises what the codec raises on a malformed DeviceInfo and what the vendor
  /// queries raise.
  static std::shared_ptr<XTImageCapturePTPDevice> withICAObject(ICAObject object, Status* failure);

  std::string_view className() const override { return "XTImageCapturePTPDevice"; }
  bool isPTPDevice() const override { return true; }
  /// 0x2005 without a message for an operation that the device does not offer.
  Status icaObjectSendMessage(ICAObjectSendMessagePB& block) override;
  /// Reads DeviceInfo, the supported data sets, the capabilities and the display-request version.
  Status loadDeviceInfoUncached() override;
  /// Sets the capability flags.
  void checkCapabilitesFromManufacturer(const std::string& manufacturer,
                                        std::uint32_t vendorExtensionID, const CodeList& opcodes,
                                        const CodeList& properties, const CodeList& imageFormats,
                                        const CodeList& datasets);

  const CodeList* opCodeList() override { return &operationList_; }
  const CodeList* eventCodeList() override { return &eventList_; }
  const CodeList* propertyList() override { return &propertyList_; }
  const CodeList* captureFormatList() override { return &captureFormatList_; }
  const CodeList* imageFormatList() override { return &imageFormatList_; }
  /// Asks anew; null when the transaction fails.
  std::unique_ptr<PTPPassThroughRecord> deviceInfoDataset() override;
  Status displayOnDevice(std::string_view, std::string_view, std::string_view, std::string_view,
                         std::string_view, std::string_view) override {
    return status::kIOError;
  }

  // PTPTransactions
  Status getDeviceInfo(PTPPassThroughRecord& record) override;
  const CodeList& supportedDatasets() override;
  std::uint16_t displayRequestVersion() override;
  bool doesLCBInfoWork() override;
  std::optional<XTPTPDataSet> propertyDataSet(std::uint16_t property) override;

 protected:
  XTImageCapturePTPDevice() = default;

 private:
  /// Takes the lists and the identity from the record's room; a short DeviceInfo reads as zeros.
  void parseDeviceInfo(const PTPPassThroughRecord& record);
  /// `read` is the number of bytes that the lists and texts would have needed.
  void reportShortDeviceInfo(std::uint32_t read, const PTPPassThroughRecord& record) const;

  CodeList operationList_;
  CodeList eventList_;
  CodeList captureFormatList_;
  CodeList imageFormatList_;
  CodeList propertyList_;
  /// None until they were read, or while the device does not list the operation.
  std::optional<CodeList> supportedDatasets_;
  std::uint16_t displayRequestVersion_ = 0;  ///< 0 is not known
};

}  // namespace tarvo
