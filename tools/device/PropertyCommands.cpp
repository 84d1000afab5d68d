// property: the settings of a device.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/JSONReader.h"
#include "Utilities/PTPCodes.h"
#include "platform/foundation/Numbers.h"
#include "tools/access/ObjectSelection.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct PropertyOptions {
  std::string property{};  ///< name or code
  std::string value{};     ///< of `set`: text, a number, or a JSON array, as the property has it
};

std::string codeText(std::uint16_t code) {
  return formatted("0x%04x", unsigned{code});
}

std::string nameAndCode(std::uint16_t code) {
  const std::string name = propertyName(code);
  return name == codeText(code) ? name : name + " (" + codeText(code) + ")";
}

std::uint16_t propertyArgument(const std::string& operation, const std::string& text) {
  if (const auto code = numberOf(text, 0xFFFF)) return static_cast<std::uint16_t>(*code);
  const std::uint16_t code = propertyCode(text);
  if (code == 0) refuseUsage(operation, "'" + text + "' is neither a property's name nor its code");
  return code;
}

/// A value as a person writes it.
std::string valueText(const PropertyDictionary& value) {
  if (value.is_string()) return value.get<std::string>();
  return value.dump(-1, ' ', false, PropertyDictionary::error_handler_t::replace);
}

/// Dates are the one kind of text that is known to be something else.
std::string valueInWords(const PTPPropertyDescription& description) {
  const std::string text = valueText(description.current);
  if (description.code == ptp::kDateTime) return dateInWords(text);
  const bool isBattery =
      description.code == ptp::kBatteryLevel && description.datatype == kPTPUInt8;
  return isBattery ? batteryInWords(description.current.get<std::uint8_t>()) : text;
}

std::string formInWords(const PTPPropertyDescription& description) {
  const auto& values = description.formValues;
  if (description.form == PTPPropertyDescription::Form::kRange && values.size() == 3)
    return valueText(values[0]) + " to " + valueText(values[1]) + " in steps of " +
           valueText(values[2]);
  std::string words;
  if (description.form == PTPPropertyDescription::Form::kEnumeration) {
    for (const auto& value : values)
      words += (words.empty() ? "" : ", ") + valueText(value);
  }
  return words;
}

PropertyDictionary asJSON(const PTPPropertyDescription& description) {
  PropertyDictionary json = jsonFromPropertyDescription(description);
  json["name"] = propertyName(description.code);
  return json;
}

struct DescriptionResult {
  std::optional<PTPPropertyDescription> description{};
  Status status = status::kOK;
  std::string why{};
};

/// A description that a device got wrong is its own failure, not the command's.
DescriptionResult describe(const OpenedDevice& device, std::uint16_t code) {
  try {
    auto dataSet = device.transactions().propertyDataSet(code);
    if (!dataSet) {
      const auto& listed = device.transactions().facts().properties;
      return {.status = containsCode(listed, code) ? device.transactions().lastOutcome()
                                                   : status::kPTPDevicePropNotSupported};
    }
    return {.description = scanPropertyDescription(*dataSet)};
  } catch (const Exception& exception) {
    return {.status = status::kICAProtocolError, .why = exception.reason()};
  }
}

PTPPropertyDescription requiredDescription(const ToolContext& context, const OpenedDevice& device,
                                           std::uint16_t code) {
  auto result = describe(device, code);
  endIfInterrupted(context, device.operation());
  if (!result.description)
    throw ToolError(device.failure(nameAndCode(code), result.status, result.why));
  return *std::move(result.description);
}

/// The JSON value that the user means. What is no JSON is a text.
PropertyDictionary valueFrom(const std::string& text, std::uint16_t datatype) {
  if (datatype == kPTPString || datatype == kPTPInt128 || datatype == kPTPUInt128) return text;
  if (datatype < kPTPArrayOfInt8) {
    // Codes are written in hexadecimal, which JSON does not have.
    if (const auto number = numberOf(text, UINT64_MAX)) return *number;
  }
  try {
    return jsonFromText(text);
  } catch (const Exception&) {
    return text;
  }
}

/// What the user gave for a property.
struct GivenValue {
  const std::string& operation;
  std::uint16_t code;
  std::string text;
};

ToolError misfit(const GivenValue& given, const std::string& why) {
  return ToolError(
      {.operation = given.operation,
       .object = nameAndCode(given.code),
       .status = status::kBadParameter,
       .why = "'" + given.text + "' does not fit: " + why,
       .advice = "'tarvoctl property get " + codeText(given.code) + "' shows what does."});
}

/// The value as it is to be sent: a date may be given as it is shown.
PropertyDictionary valueToSend(const GivenValue& given, std::uint16_t datatype) {
  if (given.code != ptp::kDateTime || datatype != kPTPString)
    return valueFrom(given.text, datatype);
  const auto date = ptpDateFromWords(given.text);
  if (!date) throw misfit(given, "a date is '2024-06-15 12:00:00' or '20240615T120000'");
  return *date;
}

XTMutablePTPDataSet encodedValue(const GivenValue& given, std::uint16_t datatype,
                                 const PropertyDictionary& value) {
  // A longer text would wrap its count.
  if (datatype == kPTPString && nameLength(given.text) >= kNameLimit)
    throw misfit(given, "it has 255 characters or more");
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  try {
    storePropertyValue(dataSet, datatype, value);
  } catch (const Exception& exception) {
    throw misfit(given, exception.reason());
  }
  return dataSet;
}

/// Every property that the device lists, with its value.
int runPropertyList(ToolContext& context) {
  const OpenedDevice device(context, "property list");
  Listing listing(context.output, {{"CODE"}, {"NAME"}, {"ACCESS"}, {"VALUE"}, {"ALLOWED"}},
                  Listing::kWhole);
  int exitCode = kDone;
  for (const std::uint16_t code : device.transactions().facts().properties) {
    const auto result = describe(device, code);
    endIfInterrupted(context, device.operation());
    if (result.description) {
      listing.add(asJSON(*result.description),
                  {codeText(code), propertyName(code),
                   result.description->isWritable ? "read and write" : "read only",
                   valueInWords(*result.description), formInWords(*result.description)});
      continue;
    }
    exitCode = kFailed;
    listing.addFailure({{"code", code}, {"name", propertyName(code)}},
                       device.failure(nameAndCode(code), result.status, result.why));
    if (device.isLost(result.status)) break;
  }
  listing.finish();
  return exitCode;
}

int runPropertyGet(ToolContext& context, const PropertyOptions& options) {
  const std::uint16_t code = propertyArgument("property get", options.property);
  const OpenedDevice device(context, "property get");
  const auto description = requiredDescription(context, device, code);
  if (context.output.isJSON()) {
    context.output.document(asJSON(description));
    return kDone;
  }
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Property", nameAndCode(code)},
      {"Value", valueInWords(description)},
      {"Default", valueText(description.factoryDefault)},
      {"Access", description.isWritable ? "read and write" : "read only"}};
  if (const auto allowed = formInWords(description); !allowed.empty())
    fields.emplace_back("Allowed", allowed);
  showFields(context.output, fields);
  return kDone;
}

/// Refuses a value that does not fit the property's type, and one for a read-only property.
int runPropertySet(ToolContext& context, const PropertyOptions& options) {
  const std::string operation = "property set";
  const std::uint16_t code = propertyArgument(operation, options.property);
  const OpenedDevice device(context, operation);
  const auto description = requiredDescription(context, device, code);
  if (!description.isWritable)
    throw ToolError(device.failure(nameAndCode(code), status::kWriteNotPermitted));
  const GivenValue given = {operation, code, options.value};
  const auto value = valueToSend(given, description.datatype);
  const auto encoded = encodedValue(given, description.datatype, value);
  device.require(device.transactions().setProperty(code, encoded.bytes()), nameAndCode(code));
  if (context.output.isJSON()) {
    context.output.document({{"code", code}, {"name", propertyName(code)}, {"value", value}});
  } else {
    context.output.line(nameAndCode(code) + "  " + options.value);
  }
  return kDone;
}

}  // namespace

void addPropertyCommands(CommandGroup& root) {
  auto group = root.group("property", "The settings of the device", "tarvoctl property list");
  group.command("list", "Every property with its value", "tarvoctl property list", runPropertyList);
  const auto options = std::make_shared<PropertyOptions>();
  group
      .command("get", "One property, and what it may be set to",
               "tarvoctl property get BatteryLevel",
               [options](ToolContext& context) { return runPropertyGet(context, *options); })
      .operand("PROPERTY", options->property, "Name or code")
      .required();
  group
      .command("set", "Set a property", "tarvoctl property set DateTime 20261124T120000",
               [options](ToolContext& context) { return runPropertySet(context, *options); })
      .operand("PROPERTY", options->property, "Name or code")
      .required()
      .operand("VALUE", options->value, "Text, number, or JSON array, as 'get' shows it")
      .required()
      .more("A date is given as it is shown.");
}

}  // namespace tarvo::tools
