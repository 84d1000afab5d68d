// query: rows of the device's own database.
#include <glib.h>

#include <cstdint>
#include <memory>
#include <string>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Format.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"

namespace tarvo::tools {
namespace {

struct QueryOptions {
  std::string sql{};
};

constexpr const char* kQuery = "query";
/// The operation on the rows: to read them.
constexpr std::uint32_t kSelect = 0;
/// Of one transaction.
constexpr std::uint32_t kPiece = 64 * 1024;

/// A query on the device, which lets it go with this.
class DeviceQuery {
 public:
  DeviceQuery(OpenedDevice& device, const std::string& sql) : device_(device) {
    device_.require(device_.transactions().sendQuery(sql, &handle_), sql);
  }
  ~DeviceQuery() {
    try {
      // A device that does not hear it has forgotten the query as well.
      (void)device_.transactions().endQuery(handle_, kSelect);
    } catch (...) {  // NOLINT(bugprone-empty-catch): nothing is left to be done for it
    }
  }
  DeviceQuery(const DeviceQuery&) = delete;
  DeviceQuery& operator=(const DeviceQuery&) = delete;

  /// False at the end of the rows.
  bool readPiece(const std::string& sql, ByteBuffer& rows) {
    bool isLast = false;
    const std::size_t before = rows.size();
    device_.require(
        device_.transactions().getDBRowsFromQuery(handle_, kSelect, kPiece, rows, isLast), sql);
    // A device that gives nothing and promises more would never come to an end.
    return !isLast && rows.size() > before;
  }

 private:
  OpenedDevice& device_;
  std::uint32_t handle_ = 0;
};

std::string asText(const ByteBuffer& rows) {
  return {reinterpret_cast<const char*>(rows.data()), rows.size()};
}

std::string asHex(const std::string& bytes) {
  std::string hex;
  for (const char byte : bytes)
    hex += formatted("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return hex;
}

PropertyDictionary asJSON(const std::string& sql, const std::string& rows) {
  PropertyDictionary json = {{"query", sql}, {"size", rows.size()}};
  const bool isText = g_utf8_validate(rows.data(), static_cast<gssize>(rows.size()), nullptr) != 0;
  if (isText) {
    json["rows"] = rows;
  } else {
    json["rowsHex"] = asHex(rows);
  }
  return json;
}

/// The rows as the device gives them: bytes for a person, one text (or hexadecimal digits where it
/// is none) with --json. The query is let go again, also after a failure.
int runQuery(ToolContext& context, const QueryOptions& options) {
  OpenedDevice device(context, kQuery);
  std::string all;
  {
    DeviceQuery query(device, options.sql);
    bool goesOn = true;
    while (goesOn) {
      ByteBuffer rows;
      goesOn = query.readPiece(options.sql, rows);
      if (context.output.isJSON()) {
        all += asText(rows);
      } else {
        context.output.text(asText(rows));
      }
    }
  }
  if (context.output.isJSON()) {
    context.output.document(asJSON(options.sql, all));
  }
  return kDone;
}

}  // namespace

void addQueryCommand(CommandGroup& root) {
  const auto options = std::make_shared<QueryOptions>();
  root.command("query", "Rows of the device's own database",
               "tarvoctl query 'SELECT * FROM pictures'",
               [options](ToolContext& context) { return runQuery(context, *options); })
      .operand("SQL", options->sql, "The query")
      .required();
}

}  // namespace tarvo::tools
