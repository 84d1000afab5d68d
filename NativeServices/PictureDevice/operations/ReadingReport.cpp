#include "NativeServices/PictureDevice/operations/ReadingReport.h"

#include "NativeServices/Logging.h"

namespace tarvo {

void ReadingReport::leaveOut(const char* what, std::uint32_t handle, Status failure) {
  TraceLog::trace("%s 0x%08X cannot be read: 0x%x", what, handle, static_cast<unsigned>(failure));
  unreadable.push_back(handle);
  // A transaction may have ended well and brought nothing of use.
  fail(failure == status::kOK ? status::kPTPGeneralError : failure);
}

void ReadingReport::take(const char* what, std::uint32_t handle, bool wasShort) {
  if (wasShort) return leaveOut(what, handle, status::kPTPIncompleteTransfer);
  ++read;
}

void ReadingReport::fail(Status failure) {
  if (status == status::kOK) status = failure;
}

Status endedByPTPException(const Exception& exception, ReadingReport& report) {
  const auto code = int32ForKey(exception.userInfo(), "ptpErrorCode");
  if (!code) {
    TraceLog::trace("%s without a ptpErrorCode counts as success: %s", exception.name().c_str(),
                    exception.reason().c_str());
  }
  const auto response = int32ForKey(exception.userInfo(), "ptpResponseCode");
  const Status known = code.value_or(response.value_or(status::kPTPGeneralError));
  report.fail(known == status::kOK ? status::kPTPGeneralError : known);
  return code.value_or(status::kOK);
}

}  // namespace tarvo
