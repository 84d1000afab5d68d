// query: rows of the device's own database.
#include <glib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Utilities/Format.h"
#include "tarvo/Vendor.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"

namespace tarvo::tools {
namespace {

struct QueryOptions {
  std::string sql{};
};

std::string asHex(const std::string& bytes) {
  std::string hex;
  for (const char byte : bytes)
    hex += formatted("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  return hex;
}

PropertyDictionary rowsAsJSON(const std::string& sql, const std::string& rows) {
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
/// is none) with --json.
int runQuery(ToolContext& context, const QueryOptions& options) {
  Device device = openCamera(context);
  std::string all;
  VendorExtension(device).query(options.sql, [&](std::string_view rows) {
    if (context.output.isJSON()) {
      all += rows;
    } else {
      context.output.text(rows);
    }
    return true;
  });
  if (context.output.isJSON()) context.output.document(rowsAsJSON(options.sql, all));
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
