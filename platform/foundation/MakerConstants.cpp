#include "platform/foundation/MakerConstants.h"

#include <glib.h>

#include <cstdlib>
#include <limits>
#include <optional>

#include "Utilities/Numbers.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/KeyFile.h"

namespace tarvo {
namespace {

/// Overrides fields by the keys of group [Maker] that bear their names.
class Overrides {
 public:
  Overrides(const UserDefaults& defaults, const LogSink& log) : defaults_(defaults), log_(log) {}

  template <typename Number>
  void number(const char* key, Number& field) const {
    const auto text = defaults_.text("Maker", key);
    if (!text) return;
    if (const auto value = numberOf(*text, std::numeric_limits<Number>::max())) {
      field = static_cast<Number>(*value);
    } else {
      refuse(key, *text, "is no number of its range");
    }
  }

  void text(const char* key, std::string& field) const {
    const auto value = defaults_.text("Maker", key);
    if (!value) return;
    if (value->empty()) return refuse(key, *value, "is empty");
    field = *value;
  }

  void list(const char* key, std::vector<std::string>& field) const {
    const auto value = defaults_.text("Maker", key);
    if (!value) return;
    // An empty list is a list: it says that no model is one of these.
    std::vector<std::string> items;
    for (std::string_view rest = *value; !rest.empty();) {
      const std::string_view item = rest.substr(0, rest.find(';'));
      rest.remove_prefix(std::min(rest.size(), item.size() + 1));
      if (const auto trimmed = trimmedBlanks(item); !trimmed.empty()) items.emplace_back(trimmed);
    }
    field = std::move(items);
  }

  void absolutePath(const char* key, std::string& field) const {
    const auto value = defaults_.text("Maker", key);
    if (!value) return;
    if (!value->starts_with('/')) return refuse(key, *value, "is no absolute path");
    field = *value;
  }

 private:
  void refuse(const char* key, const std::string& value, const char* why) const {
    logTo(log_, LogLevel::kWarning,
          "[Maker] " + std::string(key) + " is ignored: '" + value + "' " + why);
  }

  const UserDefaults& defaults_;
  const LogSink& log_;
};

}  // namespace

MakerConstants MakerConstants::load(const UserDefaults& defaults, const LogSink& log) {
  MakerConstants constants;
  // Known to the build alone, so it is no default of the structure.
  constants.agentBundlePath = TARVO_INSTALLED_BUNDLE;

  const Overrides overrides(defaults, log);
  overrides.number("usbVendorID", constants.usbVendorID);
  overrides.number("ptpVendorExtensionID", constants.ptpVendorExtensionID);
  overrides.text("manufacturer", constants.manufacturer);
  overrides.list("legacyModels", constants.legacyModels);
  overrides.list("undefinedFormatModels", constants.undefinedFormatModels);
  overrides.list("undefinedFormatModelsWithFamily", constants.undefinedFormatModelsWithFamily);
  overrides.number("uiLanguageProperty", constants.uiLanguageProperty);
  overrides.number("dockedProperty", constants.dockedProperty);
  overrides.text("relayBundleIdentifier", constants.relayBundleIdentifier);
  overrides.text("helperBundleIdentifier", constants.helperBundleIdentifier);
  overrides.text("volumeSerialPlaceholder", constants.volumeSerialPlaceholder);
  overrides.absolutePath("agentBundlePath", constants.agentBundlePath);

  // The environment wins, so that a built agent can be tried beside an installed one.
  const char* bundle = std::getenv("TARVO_AGENT_BUNDLE");
  if (bundle != nullptr && *bundle != '\0') {
    // Made absolute at once: the working folder may change later, and helpers start in another.
    constants.agentBundlePath = takeText(g_canonicalize_filename(bundle, nullptr));
  }
  return constants;
}

}  // namespace tarvo
