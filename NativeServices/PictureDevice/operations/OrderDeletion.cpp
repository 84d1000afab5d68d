#include "NativeServices/PictureDevice/operations/OrderDeletion.h"

#include <algorithm>
#include <string_view>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

constexpr std::string_view kMarkerNames[] = {"PRINTTAG.MRK", "AUTPRINT.MRK", "EMAILTAG.MRK",
                                             "AUTXFER.MRK"};

bool isMarkerName(std::string_view name) {
  return std::ranges::find(kMarkerNames, name) != std::end(kMarkerNames);
}

}  // namespace

Status OrderDeletion::deleteMarkers() {
  ObjectHandles objects;
  Status status = listObjects(device_, kMarkerFormat, objects);
  for (auto handle = objects.begin(); status == status::kOK && handle != objects.end(); ++handle) {
    ObjectInfoPointer info;
    if (device_.objectInfo(info, *handle) != status::kOK || !info) {
      TraceLog::trace("object 0x%08X without information is no marker file that is deleted",
                      *handle);
    } else if (isMarkerName(info->fileName())) {
      status = ObjectChanges(device_).deleteObject(*handle);
    }
  }
  return status;
}

Status OrderDeletion::deleteDataSets() {
  const Status status = deleteAllOfFormat(ptp::XTD_EMAIL_ORDER);
  return status == status::kOK ? deleteAllOfFormat(ptp::XTD_PRINT_ORDER) : status;
}

Status OrderDeletion::deleteAllOfFormat(std::uint16_t format) {
  ObjectHandles orders;
  Status status = listObjects(device_, format, orders);
  for (auto handle = orders.begin(); status == status::kOK && handle != orders.end(); ++handle)
    status = ObjectChanges(device_).deleteVendorObject(*handle);
  return status;
}

}  // namespace tarvo
