// property: the settings of a device.
#include <cstdint>
#include <string>
#include <utility>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/Format.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "library/Records.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct PropertyGetOptions {
  std::string property{};  ///< name or code
};

struct PropertySetOptions : PropertyGetOptions {
  std::string value{};  ///< text, a number, or a JSON array, as the property has it
};

std::string codeText(std::uint16_t code) {
  return formatted("0x%04x", unsigned{code});
}

std::string nameAndCode(std::uint16_t code) {
  const std::string name = propertyName(code);
  return name == codeText(code) ? name : name + " (" + codeText(code) + ")";
}

std::uint16_t propertyArgument(const std::string& text) {
  if (const auto code = numberOf(text, 0xFFFF)) return static_cast<std::uint16_t>(*code);
  const std::uint16_t code = propertyCode(text);
  if (code == 0) refuseUsage("'" + text + "' is neither a property's name nor its code");
  return code;
}

/// A value as a person writes it.
std::string valueText(const PropertyDictionary& value) {
  if (value.is_string()) return value.get<std::string>();
  return value.dump(-1, ' ', false, PropertyDictionary::error_handler_t::replace);
}

/// What a value means; empty where nobody knows. Dates are the one kind of text that is known to be
/// something else.
std::string meaningOf(std::uint16_t code, const PropertyDictionary& value) {
  if (code == ptp::kDateTime && value.is_string()) return dateInWords(value.get<std::string>());
  const bool isNumber = value.is_number_integer() && value <= INT32_MAX;
  return isNumber ? settingInWords(code, value.get<std::int64_t>()) : "";
}

/// "2 (automatic)"; what can be said in words alone is "2024-06-15 12:00:00" and "80 %".
std::string valueInWords(const PTPPropertyDescription& description,
                         const PropertyDictionary& value) {
  std::string meaning = meaningOf(description.code, value);
  if (description.code == ptp::kBatteryLevel && value == kUnknownBatteryLevel) return "unknown";
  const bool isPlain = description.code == ptp::kBatteryLevel || description.code == ptp::kDateTime;
  if (isPlain && !meaning.empty()) return meaning;
  return valueText(value) + (meaning.empty() ? "" : " (" + meaning + ")");
}

std::string formInWords(const PTPPropertyDescription& description) {
  const auto& values = description.formValues;
  if (description.form == PTPPropertyDescription::Form::kRange && values.size() == 3)
    return valueText(values[0]) + " to " + valueText(values[1]) + " in steps of " +
           valueText(values[2]);
  std::string words;
  if (description.form == PTPPropertyDescription::Form::kEnumeration) {
    for (const auto& value : values)
      words += (words.empty() ? "" : ", ") + valueInWords(description, value);
  }
  return words;
}

PropertyDictionary propertyAsJSON(const PTPPropertyDescription& description) {
  PropertyDictionary json = jsonFromPropertyDescription(description);
  json["name"] = propertyName(description.code);
  const std::string words = meaningOf(description.code, description.current);
  if (!words.empty()) json["words"] = validUTF8(words);
  return json;
}

std::string misfitAdvice(std::uint16_t code) {
  return "'tarvoctl property get " + codeText(code) + "' shows what does.";
}

/// Asks the device for a property, or tells it. What the library raises has its name then.
template <typename Work>
auto ofProperty(const ToolContext& context, std::uint16_t code, const Work& work) {
  try {
    return work();
  } catch (const Error& error) {
    endIfInterrupted(context);
    Failure failure = failureOf(error, nameAndCode(code));
    if (error.kind() == ErrorKind::kMisuse) failure.advice = misfitAdvice(code);
    throw ToolError(failure);
  }
}

/// The value as it is to be sent: a date may be given as it is shown.
std::string valueToSend(std::uint16_t code, const PropertyInfo& property, const std::string& text) {
  // Of one that cannot be set something else is said.
  if (code != ptp::kDateTime || property.type() != kPTPString || !property.isWritable())
    return text;
  if (auto date = ptpDateFromWords(text)) return *std::move(date);
  throw ToolError(
      {.object = nameAndCode(code),
       .status = status::kBadParameter,
       .why = "'" + text + "' does not fit: a date is '2024-06-15 12:00:00' or '20240615T120000'",
       .advice = misfitAdvice(code)});
}

/// A value that the device has taken, as JSON has it.
PropertyDictionary jsonOfValue(const PTPPropertyDescription& description, const std::string& text) {
  if (description.current.is_string()) return text;
  // Codes are written in hexadecimal, which JSON does not have.
  const auto number = numberOf(text, UINT64_MAX);
  return number ? PropertyDictionary(*number) : jsonFromText(text);
}

int runPropertyList(ToolContext& context) {
  Device device = openCamera(context);
  Listing listing(context.output, {{"CODE"}, {"NAME"}, {"ACCESS"}, {"VALUE"}, {"ALLOWED"}});
  for (const std::uint16_t code : device.facts().properties()) {
    try {
      const PropertyInfo property = device.property(code);
      const auto& description = library::recordOf(property);
      listing.add(propertyAsJSON(description),
                  {codeText(code), propertyName(code),
                   property.isWritable() ? "read and write" : "read only",
                   valueInWords(description, description.current), formInWords(description)});
    } catch (const Error& error) {
      const PropertyDictionary json = {{"code", code}, {"name", propertyName(code)}};
      if (!addFailure(context, listing, json, error, nameAndCode(code))) break;
    }
  }
  return listing.finish();
}

void runPropertyGet(ToolContext& context, const PropertyGetOptions& options) {
  const std::uint16_t code = propertyArgument(options.property);
  Device device = openCamera(context);
  const auto property = ofProperty(context, code, [&] { return device.property(code); });
  const auto& description = library::recordOf(property);
  Fields fields = {{"Property", nameAndCode(code)},
                   {"Value", valueInWords(description, description.current)},
                   {"Default", valueInWords(description, description.factoryDefault)},
                   {"Access", description.isWritable ? "read and write" : "read only"}};
  if (const auto allowed = formInWords(description); !allowed.empty())
    fields.emplace_back("Allowed", allowed);
  showFields(context.output, propertyAsJSON(description), fields);
}

/// Refuses a value that does not fit the property's type, and one for a read-only property.
void runPropertySet(ToolContext& context, const PropertySetOptions& options) {
  const std::uint16_t code = propertyArgument(options.property);
  Device device = openCamera(context);
  const auto property = ofProperty(context, code, [&] { return device.property(code); });
  const std::string value = valueToSend(code, property, options.value);
  ofProperty(context, code, [&] { device.setProperty(code, value); });
  context.output.result({{"code", code},
                         {"name", propertyName(code)},
                         {"value", jsonOfValue(library::recordOf(property), value)}},
                        nameAndCode(code) + "  " + options.value);
}

}  // namespace

void addPropertyCommands(CommandGroup& root) {
  auto group = root.group("property", "The settings of the device", "tarvoctl property list");
  group.command("list", "Every property with its value", "tarvoctl property list", runPropertyList);
  auto [get, asked] = group.command("get", "One property, and what it may be set to",
                                    "tarvoctl property get BatteryLevel", runPropertyGet);
  get.required("PROPERTY", asked.property, "Name or code");
  auto [set, told] = group.command(
      "set", "Set a property", "tarvoctl property set DateTime 20261124T120000", runPropertySet);
  set.required("PROPERTY", told.property, "Name or code")
      .required("VALUE", told.value, "Text, number, or JSON array, as 'get' shows it")
      .more("A date is given as it is shown.");
}

}  // namespace tarvo::tools
