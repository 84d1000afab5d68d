#include "NativeServices/PictureDevice/datasets/OrderRecords.h"

#include <cstdint>
#include <string>

#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "NativeServices/PictureDevice/datasets/XTUInt128.h"

namespace tarvo {

namespace {

/// A count and the 16 bytes of a GUID.
constexpr std::uint32_t kGUIDLength = 20;

/// Passes over the 20 bytes of the id, whatever they are.
class TransferOrderReader : public FieldReader {
 public:
  explicit TransferOrderReader(XTPTPDataSet& dataSet) : FieldReader(dataSet), dataSet_(dataSet) {}

  using FieldReader::operator();
  void operator()(const char*, GUIDField<std::string> field) const {
    const std::uint32_t position = dataSet_.position();
    field.value = dataSet_.scanGUID().value_or("");
    dataSet_.setPosition(position);
    dataSet_.skip(kGUIDLength);  // no bounds test, intended: the field behind it raises
  }

 private:
  XTPTPDataSet& dataSet_;
};

/// Writes the 20 bytes that this reader needs, whatever the id is.
class TransferOrderWriter : public FieldWriter {
 public:
  explicit TransferOrderWriter(XTMutablePTPDataSet& dataSet)
      : FieldWriter(dataSet), dataSet_(dataSet) {}

  using FieldWriter::operator();
  void operator()(const char*, GUIDField<const std::string> field) const {
    const std::uint32_t position = dataSet_.position();
    dataSet_.storeGUID(field.value);
    if (dataSet_.position() - position == kGUIDLength) return;
    dataSet_.setPosition(position);
    dataSet_.storeUInt128ToUInt8Array({});
  }

 private:
  XTMutablePTPDataSet& dataSet_;
};

}  // namespace

EmailOrderRecord scanEmailOrder(XTPTPDataSet& dataSet) {
  EmailOrderRecord order;
  visitFields(order, FieldReader(dataSet));
  return order;
}

PrintOrderRecord scanPrintOrder(XTPTPDataSet& dataSet) {
  PrintOrderRecord order;
  visitFields(order, FieldReader(dataSet));
  return order;
}

TransferOrderRecord scanTransferOrder(XTPTPDataSet& dataSet) {
  TransferOrderRecord order;
  visitFields(order, TransferOrderReader(dataSet));
  return order;
}

void storeEmailOrder(XTMutablePTPDataSet& dataSet, const EmailOrderRecord& order) {
  visitFields(order, FieldWriter(dataSet));
}

void storePrintOrder(XTMutablePTPDataSet& dataSet, const PrintOrderRecord& order) {
  visitFields(order, FieldWriter(dataSet));
}

void storeTransferOrder(XTMutablePTPDataSet& dataSet, const TransferOrderRecord& order) {
  visitFields(order, TransferOrderWriter(dataSet));
}

}  // namespace tarvo
