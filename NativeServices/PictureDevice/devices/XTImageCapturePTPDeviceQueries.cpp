// Queries of the database that a device keeps of its pictures. A query is sent as an object; its
// rows are fetched by the object's handle.
#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/PassThroughTransaction.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

/// Bytes of rows that may come when a query is let go; they are of no use.
constexpr std::uint32_t kEndOfQueryRoom = 64;

}  // namespace

Status XTImageCapturePTPDevice::sendQuery(std::string_view query, std::uint32_t* resultHandle) {
  // What is no text would reach the device as replacement characters.
  if (utf8FromUTF16(utf16FromUTF8(query)) != query) {
    TraceLog::trace("Failed to extract query from NSString.");
    return status::kFileNotFound;
  }
  XTExtendedObjectInfo info;
  info.setCompressedSize(static_cast<std::uint32_t>(query.size()));
  info.setObjFmtCode(ptp::XTD_QUERY);
  // Always in one piece, and wherever the device keeps such objects.
  const Status status = sendData(std::as_bytes(std::span(query)), info, 0, 0, resultHandle);
  TraceLog::trace("sendQuery status: %d", status);
  return status;
}

Status XTImageCapturePTPDevice::getDBRowsFromQuery(std::uint32_t query, std::uint32_t sqlOp,
                                                   std::uint32_t maxSize, ByteBuffer& data,
                                                   bool& endOfData) {
  return getDBRows({query, sqlOp, 0, maxSize}, data, endOfData);
}

Status XTImageCapturePTPDevice::endQuery(std::uint32_t query, std::uint32_t sqlOp) {
  ByteBuffer scratch;
  bool endOfData = false;
  return getDBRows({query, sqlOp, 1, kEndOfQueryRoom}, scratch, endOfData);
}

Status XTImageCapturePTPDevice::getDBRows(const DBRowsRequest& request, ByteBuffer& data,
                                          bool& endOfData) {
  const std::size_t before = data.size();
  Status outcome = status::kOK;
  {
    // Straight behind the rows that are there already; the sink gives back what it did not fill.
    BufferSink sink(data, request.maxSize);
    PassThroughTransaction transaction(
        {.method = "getDBRowsFromQuery",
         .headerFailure = "getDBRowsFromQuery XTO_GET_DB_ROWS",
         .operation = ptp::XTO_GET_DB_ROWS,
         .parameters = {request.query, request.sqlOp, request.finalize, request.maxSize},
         .responseParameters = 2,
         .dataUsageMode = kDataFromDevice,
         .room = request.maxSize,
         .sink = &sink});
    if (run(transaction)) endOfData = transaction.responseParameter(1) != 0;
    outcome = transaction.outcome();
  }
  // Rows of a transaction that failed may be cut.
  if (outcome != status::kOK) data.resize(before);
  return outcome;
}

}  // namespace tarvo
