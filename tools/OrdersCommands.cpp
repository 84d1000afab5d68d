#include "tools/OrdersCommands.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/foundation/Numbers.h"
#include "tools/Batch.h"
#include "tools/Listing.h"
#include "tools/OrderList.h"
#include "tools/OrderPictures.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

constexpr std::size_t kShownPictures = 3;

std::string nameInWords(const OrderedPicture& picture) {
  return picture.name.empty() ? "picture " + handleText(picture.handle) + " (not on the device)"
                              : picture.name;
}

/// As many as a line of a table holds.
std::string picturesInWords(const ListedOrder& order) {
  std::string words;
  const std::size_t shown = std::min(order.pictures.size(), kShownPictures);
  for (std::size_t index = 0; index < shown; ++index)
    words += (words.empty() ? "" : ", ") + nameInWords(order.pictures[index]);
  if (order.pictures.size() > shown)
    words += " and " + std::to_string(order.pictures.size() - shown) + " more";
  return words.empty() ? "(none)" : words;
}

std::string kindInWords(const ListedOrder& order) {
  return order.kind == "email" ? "e-mail" : order.kind;
}

Failure gapFailure(const OpenedDevice& device, const std::string& gap) {
  return {.operation = device.operation(), .why = gap, .advice = "Try again."};
}

/// The orders that `texts` mean; all without any.
std::vector<const ListedOrder*> chosenOrders(const OrderList& list, const std::string& operation,
                                             const std::vector<std::string>& texts) {
  std::vector<const ListedOrder*> chosen;
  for (const auto& text : texts) {
    const ListedOrder* order = &orderNamed(list, operation, text);
    if (std::ranges::count(chosen, order) == 0) chosen.push_back(order);
  }
  if (!texts.empty()) return chosen;
  for (const auto& order : list.orders)
    chosen.push_back(&order);
  return chosen;
}

void showOrder(Output& output, const ListedOrder& order) {
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Order", std::to_string(order.number) + ", " + kindInWords(order)}};
  if (order.handle != 0) fields.emplace_back("Handle", handleText(order.handle));
  const auto add = [&](const char* name, const char* key) {
    if (!order.json.contains(key)) return;
    const auto& value = order.json[key];
    const auto text = value.is_string() ? value.get<std::string>() : value.dump();
    if (!text.empty()) fields.emplace_back(name, text);
  };
  if (order.kind == "email") {
    add("From", "XTEmailOrderSenderAddressKey");
    fields.emplace_back("To", order.purpose.empty() ? "(nobody)" : order.purpose);
    add("Subject", "XTEmailOrderSubjectKey");
    add("Text", "XTEmailOrderBodyKey");
  } else if (order.kind == "print") {
    fields.emplace_back("Print", order.purpose);
    add("Paper size", "XTPrintOrderPaperSizeKey");
    add("Note", "XTPrintOrderAnnotationKey");
  } else {
    add("From", "XTTransferOrderSenderKey");
  }
  for (const auto& picture : order.pictures)
    fields.emplace_back("Picture", nameInWords(picture));
  showFields(output, fields);
}

/// Every gap is a failure of the command, and does not hide what could be read.
int sayGaps(Listing& listing, const OpenedDevice& device, const OrderList& list) {
  for (const auto& gap : list.gaps)
    listing.addFailure(PropertyDictionary::object(), gapFailure(device, gap));
  return list.gaps.empty() ? kDone : kFailed;
}

int download(ToolContext& context, OpenedDevice& device, const OrdersShowOptions& options,
             const OrderList& list) {
  Batch batch(context, device.operation(), "pictures fetched");
  for (const auto& gap : list.gaps)
    batch.failed(PropertyDictionary::object(), gapFailure(device, gap));
  OrderPictures pictures(context, device, batch, options.download);
  for (const ListedOrder* order : chosenOrders(list, device.operation(), options.orders)) {
    if (!batch.goesOn()) break;
    pictures.fetch(*order);
  }
  return batch.finish();
}

/// The pictures of an order that `texts` mean, by name or handle; all without any.
std::vector<OrderedPicture> chosenPictures(const ListedOrder& order, const std::string& operation,
                                           const std::vector<std::string>& texts) {
  if (texts.empty()) return order.pictures;
  std::vector<OrderedPicture> chosen;
  for (const auto& text : texts) {
    const auto number = numberOf(text, 0xFFFFFFFF);
    const auto found = std::ranges::find_if(order.pictures, [&](const OrderedPicture& picture) {
      return picture.name == text || (number && picture.handle == *number);
    });
    if (found == order.pictures.end())
      throw ToolError({.operation = operation,
                       .object = text,
                       .status = status::kFileNotFound,
                       .why = inWords(order) + " has no such picture",
                       .advice = "'tarvoctl orders show' shows what it has."});
    chosen.push_back(*found);
  }
  return chosen;
}

[[noreturn]] void refuseMarkerOrder(const std::string& operation, const ListedOrder& order) {
  throw ToolError({.operation = operation,
                   .object = inWords(order),
                   .status = status::kUnsupported,
                   .why = "the device keeps it as a line of a file, which cannot be changed singly",
                   .advice = "'tarvoctl orders delete' deletes all such orders at once."});
}

bool isAllowed(ToolContext& context, const OpenedDevice& device, bool yes, std::size_t count) {
  if (yes || !canAsk(context)) return true;
  const std::string what = count == 1 ? "1 order" : std::to_string(count) + " orders";
  return isConfirmed(context,
                     "Delete " + what + " from " + device.device().name() + "? The pictures stay.");
}

/// What an order says, whatever its place in the list.
PropertyDictionary contentOf(const ListedOrder& order) {
  PropertyDictionary content = order.json;
  content.erase("number");
  return content;
}

/// All orders at once, as the device's own way has it: it deletes marker files by their exact
/// names, and keeps what a transfer is about.
int deleteAll(ToolContext& context, const OpenedDevice& device, const OrderList& before) {
  Batch batch(context, device.operation(), "orders deleted");
  const Status status = device.device().deleteOrderFiles();
  auto left = readOrders(device);
  std::vector<PropertyDictionary> there;
  for (const auto& order : left.orders)
    there.push_back(contentOf(order));
  for (const auto& order : before.orders) {
    const auto found = std::ranges::find(there, contentOf(order));
    if (found != there.end()) {
      there.erase(found);
      continue;
    }
    batch.succeeded({{"number", order.number}, {"kind", order.kind}, {"handle", order.handle}},
                    inWords(order));
  }
  if (status != status::kOK && status != status::kPTPOK)
    batch.failed(device, PropertyDictionary::object(), "", status);
  if (!left.orders.empty())
    context.output.message(std::to_string(left.orders.size()) +
                           " still there: the device keeps orders for a transfer, and marker "
                           "files whose names are not quite its own.");
  for (const auto& gap : left.gaps)
    batch.failed(PropertyDictionary::object(), gapFailure(device, gap));
  return batch.finish();
}

int deleteChosen(ToolContext& context, const OpenedDevice& device,
                 const std::vector<const ListedOrder*>& orders) {
  Batch batch(context, device.operation(), "orders deleted");
  for (const ListedOrder* order : orders) {
    if (!batch.goesOn()) break;
    PropertyDictionary json = {{"number", order->number}, {"handle", order->handle}};
    batch.attempt(device, json, inWords(*order), [&] {
      const Status status = device.device().deleteVendorObjectPTP(order->handle);
      if (status == status::kOK || status == status::kPTPOK) {
        batch.succeeded(json, inWords(*order));
      } else {
        batch.failed(device, json, inWords(*order), status);
      }
    });
  }
  return batch.finish();
}

}  // namespace

int runOrdersList(ToolContext& context) {
  const OpenedDevice device(context, "orders list");
  const auto list = readOrders(device);
  endIfInterrupted(context, device.operation());
  Listing listing(context.output, {{"ORDER", 0, true}, {"HANDLE"}, {"KIND"}, {"FOR"}, {"PICTURES"}},
                  Listing::kWhole);
  for (const auto& order : list.orders)
    listing.add(order.json,
                {std::to_string(order.number), order.handle == 0 ? "" : handleText(order.handle),
                 kindInWords(order), order.purpose, picturesInWords(order)});
  const int exitCode = sayGaps(listing, device, list);
  listing.finish();
  if (list.orders.empty() && list.gaps.empty()) context.output.message("There are no orders.");
  return exitCode;
}

int runOrdersShow(ToolContext& context, const OrdersShowOptions& options) {
  OpenedDevice device(context, "orders show");
  const auto list = readOrders(device);
  endIfInterrupted(context, device.operation());
  if (!options.download.empty()) return download(context, device, options, list);
  const auto chosen = chosenOrders(list, device.operation(), options.orders);
  Listing listing(context.output, {}, Listing::kWhole);
  for (const ListedOrder* order : chosen) {
    context.output.item(order->json);
    if (order != chosen.front()) context.output.line("");
    if (!context.output.isJSON()) showOrder(context.output, *order);
  }
  const int exitCode = sayGaps(listing, device, list);
  listing.finish();
  if (chosen.empty() && list.gaps.empty()) context.output.message("There are no orders.");
  return exitCode;
}

int runOrdersFulfil(ToolContext& context, const OrdersFulfilOptions& options) {
  const OpenedDevice device(context, "orders fulfil");
  const auto list = readOrders(device);
  endIfInterrupted(context, device.operation());
  const auto& order = orderNamed(list, device.operation(), options.order);
  if (order.handle == 0) refuseMarkerOrder(device.operation(), order);
  const auto pictures = chosenPictures(order, device.operation(), options.pictures);
  Batch batch(context, device.operation(), "pictures fulfilled");
  for (const auto& picture : pictures) {
    if (!batch.goesOn()) break;
    PropertyDictionary json = {
        {"order", order.handle}, {"handle", picture.handle}, {"name", validUTF8(picture.name)}};
    const std::string object = inWords(order) + ", " + nameInWords(picture);
    batch.attempt(device, json, object, [&] {
      const Status status = device.device().indicateFulfillment(order.handle, picture.handle);
      if (status == status::kOK || status == status::kPTPOK) {
        batch.succeeded(json, object);
      } else {
        batch.failed(device, json, object, status);
      }
    });
  }
  return batch.finish();
}

int runOrdersDelete(ToolContext& context, const OrdersDeleteOptions& options) {
  const OpenedDevice device(context, "orders delete");
  const auto list = readOrders(device);
  endIfInterrupted(context, device.operation());
  const auto chosen = chosenOrders(list, device.operation(), options.orders);
  if (!options.orders.empty()) {
    for (const ListedOrder* order : chosen)
      if (order->handle == 0) refuseMarkerOrder(device.operation(), *order);
  }
  // An order that could not be read is deleted all the same where all are.
  if (chosen.empty() && list.gaps.empty()) {
    if (context.output.isJSON()) context.output.document(PropertyDictionary::array());
    context.output.message("There are no orders.");
    return kDone;
  }
  if (!isAllowed(context, device, options.yes, chosen.size())) {
    context.output.message("Nothing was deleted.");
    return kFailed;
  }
  return options.orders.empty() ? deleteAll(context, device, list)
                                : deleteChosen(context, device, chosen);
}

}  // namespace tarvo::tools
