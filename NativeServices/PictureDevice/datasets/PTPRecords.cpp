#include "NativeServices/PictureDevice/datasets/PTPRecords.h"

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/RecordFields.h"

namespace tarvo {

namespace {

/// Records are short and written once, so nothing is reserved.
template <typename Record>
XTMutablePTPDataSet dataSetFromRecord(const Record& record) {
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  visitFields(record, FieldWriter(dataSet));
  return dataSet;
}

}  // namespace

PTPDeviceInfo scanDeviceInfo(XTPTPDataSet& dataSet) {
  PTPDeviceInfo info;
  visitFields(info, FieldReader(dataSet));
  return info;
}

XTMutablePTPDataSet dataSetFromDeviceInfo(const PTPDeviceInfo& info) {
  return dataSetFromRecord(info);
}

std::shared_ptr<const PTPStorageInfo> scanStorageInfo(XTPTPDataSet& dataSet) {
  auto info = std::make_shared<PTPStorageInfo>();
  const FieldReader read(dataSet);
  // Each field before the next is read: a trace shows how far a cut record came.
  visitFields(*info, [&](const char* name, auto& field) {
    read(name, field);
    TraceLog::trace("StorageInfo.%s: %llu", name, static_cast<unsigned long long>(field));
  });
  return info;
}

XTMutablePTPDataSet dataSetFromStorageInfo(const PTPStorageInfo& info) {
  auto dataSet = dataSetFromRecord(info);
  dataSet.storeString("");  // StorageDescription
  dataSet.storeString("");  // VolumeLabel
  return dataSet;
}

XT_AddressBookInfo scanAddressBookInfo(XTPTPDataSet& dataSet) {
  XT_AddressBookInfo info;
  const FieldReader read(dataSet);
  visitFields(info, [&](const char* name, auto& field) {
    read(name, field);
    // Signed, although the fields are not; this is intended.
    TraceLog::trace("AddressBookInfo.%s: %i", name, static_cast<int>(field));
  });
  return info;
}

XTMutablePTPDataSet dataSetFromAddressBookInfo(const XT_AddressBookInfo& info) {
  return dataSetFromRecord(info);
}

}  // namespace tarvo
