// orders: what the user of a camera marked to be sent by e-mail, printed or transferred.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tarvo/Orders.h"
#include "tools/access/Batch.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/orders/OrderPictures.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct OrdersShowOptions {
  std::vector<std::string> orders{};  ///< numbers in the list, or handles; none: all
  std::string download{};             ///< folder for one folder an order; empty: nothing is fetched
};

struct OrdersFulfilOptions {
  std::string order{};
  std::vector<std::string> pictures{};  ///< names or handles; none: all of the order
};

struct OrdersDeleteOptions {
  std::vector<std::string> orders{};  ///< none: all that the device lets go
  bool yes = false;                   ///< does not ask
};

constexpr std::size_t kShownPictures = 3;
constexpr const char* kNoOrders = "There are no orders.";

std::string nameInWords(const OrderPicture& picture) {
  return picture.name().empty() ? "picture " + handleText(picture.handle()) + " (not on the device)"
                                : picture.name();
}

/// As many as a line of a table holds.
std::string picturesInWords(const Order& order) {
  std::string words;
  const auto& pictures = order.pictures();
  const std::size_t shown = std::min(pictures.size(), kShownPictures);
  for (std::size_t index = 0; index < shown; ++index)
    words += (words.empty() ? "" : ", ") + nameInWords(pictures[index]);
  if (pictures.size() > shown) words += " and " + std::to_string(pictures.size() - shown) + " more";
  return words.empty() ? "(none)" : words;
}

/// The handle that a user writes as 0x...; none for anything else.
std::optional<std::uint32_t> handleNamed(const std::string& text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  return isHex ? handleArgument(text) : std::nullopt;
}

/// The order that `text` means: its number in the list, or its handle as 0x...
const Order& orderNamed(const OrderList& list, const std::string& text) {
  const auto handle = handleNamed(text);
  const auto number = handleArgument(text);
  const auto found = std::ranges::find_if(list.orders(), [&](const Order& order) {
    if (handle) return order.handle() != 0 && order.handle() == *handle;
    return number && order.number() == *number;
  });
  if (found == list.orders().end())
    throw ToolError({.object = text,
                     .status = status::kFileNotFound,
                     .why = "the device has no such order",
                     .advice = "'tarvoctl orders list' shows the orders."});
  return *found;
}

/// The orders that `texts` mean; all without any.
std::vector<const Order*> chosenOrders(const OrderList& list,
                                       const std::vector<std::string>& texts) {
  std::vector<const Order*> chosen;
  for (const auto& text : texts) {
    const Order* order = &orderNamed(list, text);
    if (std::ranges::count(chosen, order) == 0) chosen.push_back(order);
  }
  if (!texts.empty()) return chosen;
  for (const auto& order : list.orders())
    chosen.push_back(&order);
  return chosen;
}

/// The orders of the device that is meant.
OrderList readOrders(ToolContext& context, Device& device) {
  auto list = tarvo::readOrders(device);
  endIfInterrupted(context);
  return list;
}

void showOrder(Output& output, const Order& order) {
  Fields fields = {{"Order", std::to_string(order.number()) + ", " + order.kindInWords()}};
  if (order.handle() != 0) fields.emplace_back("Handle", handleText(order.handle()));
  const auto json = PropertyDictionary::parse(order.json());
  const auto add = [&](const char* name, const char* key) {
    if (!json.contains(key)) return;
    const auto& value = json[key];
    const auto text = value.is_string() ? value.get<std::string>() : value.dump();
    if (!text.empty()) fields.emplace_back(name, text);
  };
  if (order.kind() == "email") {
    add("From", "XTEmailOrderSenderAddressKey");
    fields.emplace_back("To", order.purpose().empty() ? "(nobody)" : order.purpose());
    add("Subject", "XTEmailOrderSubjectKey");
    add("Text", "XTEmailOrderBodyKey");
  } else if (order.kind() == "print") {
    fields.emplace_back("Print", order.purpose());
    add("Paper size", "XTPrintOrderPaperSizeKey");
    add("Note", "XTPrintOrderAnnotationKey");
  } else {
    add("From", "XTTransferOrderSenderKey");
  }
  for (const auto& picture : order.pictures())
    fields.emplace_back("Picture", nameInWords(picture));
  showFields(output, fields);
}

bool isEmpty(const OrderList& list) {
  return list.orders().empty() && list.unread().empty() && list.withheld().empty();
}

/// Orders that are there and not in the list.
void sayWithheld(ToolContext& context, const OrderList& list) {
  for (const auto& order : list.withheld()) {
    context.output.message(order +
                           " is not shown: the device waits for a transfer of other pictures.");
    context.output.item({{"withheld", order}});
  }
}

/// What could not be read is a failure of the command, and does not hide what could be.
int finish(ToolContext& context, Listing& listing, const OrderList& list) {
  for (const auto& entry : list.unread())
    listing.addFailure(asJSON(entry), failureOf(context, entry));
  sayWithheld(context, list);
  return listing.finish(isEmpty(list) ? kNoOrders : "");
}

void sayUnread(ToolContext& context, Batch& batch, const OrderList& list) {
  for (const auto& entry : list.unread())
    batch.failed(asJSON(entry), failureOf(context, entry));
}

int download(ToolContext& context, Device& device, const OrdersShowOptions& options,
             const OrderList& list) {
  Batch batch(context, "pictures fetched");
  sayUnread(context, batch, list);
  sayWithheld(context, list);
  batch.advise("What was fetched stays; the same command goes on there.");
  fetchOrderPictures(context, device, batch, chosenOrders(list, options.orders), options.download,
                     [](const Order&, std::uint64_t) { return true; });
  return batch.finish();
}

/// The pictures of an order that `texts` mean, by name or handle; all without any.
std::vector<OrderPicture> chosenPictures(const Order& order,
                                         const std::vector<std::string>& texts) {
  if (texts.empty()) return order.pictures();
  std::vector<OrderPicture> chosen;
  for (const auto& text : texts) {
    const auto number = handleArgument(text);
    const auto found = std::ranges::find_if(order.pictures(), [&](const OrderPicture& picture) {
      return picture.name() == text || (number && picture.handle() == *number);
    });
    if (found == order.pictures().end())
      throw ToolError({.object = text,
                       .status = status::kFileNotFound,
                       .why = order.description() + " has no such picture",
                       .advice = "'tarvoctl orders show' shows what it has."});
    chosen.push_back(*found);
  }
  return chosen;
}

[[noreturn]] void refuseMarkerOrder(const Order& order) {
  throw ToolError({.object = order.description(),
                   .status = status::kUnsupported,
                   .why = "the device keeps it as a line of a file, which cannot be changed singly",
                   .advice = "'tarvoctl orders delete' deletes all such orders at once."});
}

/// What is to be deleted: an object, and the orders that go with it.
struct Doomed {
  std::uint32_t handle = 0;
  bool isFile = false;  ///< a marker file, which the standard operation deletes
  std::vector<const Order*> orders{};
  std::string unread{};  ///< in its place, what could not be read
};

/// "2 e-mail orders, 1 print order".
std::string countedInWords(const std::vector<Doomed>& doomed) {
  std::map<std::string, std::size_t> counts;
  for (const auto& each : doomed) {
    for (const Order* order : each.orders)
      ++counts[order->kindInWords() + " order"];
    if (!each.unread.empty()) ++counts[each.unread + " that cannot be read"];
  }
  std::vector<std::string> words;
  for (const auto& [what, count] : counts) {
    const auto end = what.find(" that") == std::string::npos ? what.size() : what.find(" that");
    words.push_back(std::to_string(count) + " " + what.substr(0, end) + (count == 1 ? "" : "s") +
                    what.substr(end));
  }
  return joined(words);
}

/// Whether the orders of a marker file are all that is in it.
bool isReadInWhole(const OrderList& list, std::uint32_t marker) {
  return std::ranges::none_of(list.unread(),
                              [&](const auto& entry) { return entry.handle() == marker; });
}

/// All that is in the list, but what the device keeps for a transfer.
std::vector<Doomed> allOf(ToolContext& context, Device& device, const OrderList& list) {
  const bool waits = keepsOrdersForTransfer(device);
  std::map<std::uint32_t, Doomed> files;
  std::vector<Doomed> doomed;
  std::size_t kept = 0;
  for (const auto& order : list.orders()) {
    if (order.handle() == 0 && isReadInWhole(list, order.marker())) {
      auto& file = files[order.marker()];
      file = {.handle = order.marker(), .isFile = true, .orders = std::move(file.orders)};
      file.orders.push_back(&order);
    } else if (order.handle() != 0 && order.kind() != "transfer" && !waits) {
      doomed.push_back({.handle = order.handle(), .orders = {&order}});
    } else {
      ++kept;
    }
  }
  for (auto& [handle, file] : files)
    doomed.push_back(std::move(file));
  if (kept > 0)
    context.output.message(
        std::to_string(kept) +
        " of them stay: what the device keeps for a transfer, and what stands in "
        "one file with what cannot be read. Name it to delete it.");
  return doomed;
}

/// What `texts` name, also what could not be read.
std::vector<Doomed> namedOf(const OrderList& list, const std::vector<std::string>& texts) {
  std::vector<Doomed> doomed;
  for (const auto& text : texts) {
    const auto handle = handleNamed(text);
    const auto unread = std::ranges::find_if(list.unread(), [&](const Unread& entry) {
      const bool isOrder = entry.what() != "contact" && entry.what() != "group";
      return handle && entry.handle() == *handle && entry.handle() != 0 && isOrder;
    });
    Doomed named;
    if (unread != list.unread().end()) {
      const auto& what = unread->what();
      named = {.handle = *handle, .isFile = what == "marker file", .unread = what};
      for (const auto& order : list.orders())
        if (named.isFile && order.marker() == *handle) named.orders.push_back(&order);
    } else {
      const auto& order = orderNamed(list, text);
      if (order.handle() == 0) refuseMarkerOrder(order);
      named = {.handle = order.handle(), .orders = {&order}};
    }
    const auto isSame = [&](const Doomed& other) { return other.handle == named.handle; };
    if (std::ranges::none_of(doomed, isSame)) doomed.push_back(std::move(named));
  }
  return doomed;
}

/// One object, with a result for each order that goes with it.
void deleteOne(Batch& batch, Device& device, const Doomed& doomed) {
  const std::string object = doomed.unread.empty()
                                 ? doomed.orders.front()->description()
                                 : doomed.unread + " " + handleText(doomed.handle);
  const PropertyDictionary json = {{"handle", doomed.handle}};
  batch.attempt(json, object, [&] {
    (doomed.isFile ? removeMarkerFile : removeOrder)(device, doomed.handle);
    if (!doomed.unread.empty()) batch.succeeded(json, object);
    for (const Order* order : doomed.orders)
      batch.succeeded(
          {{"number", order->number()}, {"kind", order->kind()}, {"handle", order->handle()}},
          order->description());
  });
}

/// Every order with whom or what it is for. The exit status tells whether all could be read.
int runOrdersList(ToolContext& context) {
  Device device = openCamera(context);
  const auto list = readOrders(context, device);
  Listing listing(context.output,
                  {{"ORDER", 0, true}, {"HANDLE"}, {"KIND"}, {"FOR"}, {"PICTURES"}});
  for (const auto& order : list.orders())
    listing.add(
        PropertyDictionary::parse(order.json()),
        {std::to_string(order.number()), order.handle() == 0 ? "" : handleText(order.handle()),
         order.kindInWords(), order.purpose(), picturesInWords(order)});
  return finish(context, listing, list);
}

/// All that is known of orders, and their pictures as files where wanted. Pictures that are there
/// already in the same size are passed over.
int runOrdersShow(ToolContext& context, const OrdersShowOptions& options) {
  Device device = openCamera(context);
  const auto list = readOrders(context, device);
  if (!options.download.empty()) return download(context, device, options, list);
  const auto chosen = chosenOrders(list, options.orders);
  Listing listing(context.output, {});
  for (const Order* order : chosen) {
    context.output.item(PropertyDictionary::parse(order->json()));
    if (order != chosen.front()) context.output.line("");
    if (!context.output.isJSON()) showOrder(context.output, *order);
  }
  return finish(context, listing, list);
}

/// Tells the device that pictures of an order have been dealt with. Only an order that the device
/// keeps as a data set knows that; the others can be deleted.
int runOrdersFulfil(ToolContext& context, const OrdersFulfilOptions& options) {
  Device device = openCamera(context);
  const auto list = readOrders(context, device);
  const auto& order = orderNamed(list, options.order);
  if (order.handle() == 0) refuseMarkerOrder(order);
  const auto pictures = chosenPictures(order, options.pictures);
  Batch batch(context, "pictures fulfilled");
  batch.forEach(pictures, [&](const OrderPicture& picture) {
    const PropertyDictionary json = {{"order", order.handle()},
                                     {"handle", picture.handle()},
                                     {"name", validUTF8(picture.name())}};
    const std::string object = order.description() + ", " + nameInWords(picture);
    batch.attempt(json, object, [&] {
      fulfilOrder(device, order, picture);
      batch.succeeded(json, object);
    });
  });
  return batch.finish();
}

/// Tells the device that every picture of an order has been dealt with.
void fulfilWhole(Device& device, Batch& batch, const Order& order) {
  batch.forEach(order.pictures(), [&](const OrderPicture& picture) {
    batch.attempt({{"order", order.handle()}, {"handle", picture.handle()}},
                  order.description() + ", " + nameInWords(picture),
                  [&] { fulfilOrder(device, order, picture); });
  });
}

/// Deletes orders, never their pictures, and says what is still there.
int runOrdersDelete(ToolContext& context, const OrdersDeleteOptions& options) {
  const Consent consent(context, options.yes, "delete orders");
  Device device = openCamera(context);
  const auto list = readOrders(context, device);
  const auto doomed =
      options.orders.empty() ? allOf(context, device, list) : namedOf(list, options.orders);
  const std::string question = "Delete " + countedInWords(doomed) + " from " +
                               device.facts().name() + "? The pictures stay.";
  if (!doomed.empty()) consent.require(question, "nothing was deleted");
  Batch batch(context, "orders deleted");
  batch.forEach(doomed, [&](const Doomed& each) { deleteOne(batch, device, each); });
  // What could not be read is still there, and nobody is to think that all is gone.
  if (options.orders.empty()) sayUnread(context, batch, list);
  if (isEmpty(list)) context.output.message(kNoOrders);
  return batch.finish();
}

}  // namespace

int importOrders(ToolContext& context, Device& device, const std::string& folder,
                 const std::function<bool(const Order& order, bool isWhole)>& told) {
  const auto list = readOrders(context, device);
  if (isEmpty(list)) return kDone;
  Batch batch(context, "pictures of orders fetched");
  sayUnread(context, batch, list);
  sayWithheld(context, list);
  const auto dealtWith = [&](const Order& order, std::uint64_t failures) {
    // Done with is what is here as a whole; what stands in a file of the device cannot be told.
    const auto isWhole = [&] { return batch.failures() == failures && batch.goesOn(); };
    if (isWhole() && order.handle() != 0) fulfilWhole(device, batch, order);
    return !told || told(order, isWhole());
  };
  fetchOrderPictures(context, device, batch, chosenOrders(list, {}), folder, dealtWith);
  return batch.finish();
}

void addOrdersCommands(CommandGroup& root) {
  auto group = root.group("orders", "What was marked to be sent, printed or transferred",
                          "tarvoctl orders list");
  group.command("list", "Every order with whom or what it is for", "tarvoctl orders list",
                runOrdersList);
  auto [show, shown] = group.command("show", "All that is known of orders, and their pictures",
                                     "tarvoctl orders show --download orders/", runOrdersShow);
  show.operand("ORDER", shown.orders, "Numbers in the list, or handles (0x...); all")
      .option("--download", shown.download, "DIR", "Fetch the pictures, one folder an order")
      .more(
          "What the order says is put beside its pictures, in order.json; pictures that are\n"
          "there already are passed over.");
  auto [fulfil, done] =
      group.command("fulfil", "Tell the device that pictures have been dealt with",
                    "tarvoctl orders fulfil 1", runOrdersFulfil);
  fulfil.required("ORDER", done.order, "Number in the list, or handle (0x...)")
      .operand("PICTURE", done.pictures, "Names or handles; all of the order")
      .more("Orders without a handle are lines of a file and know nothing of it.");
  auto [remove, gone] = group.command("delete", "Delete orders; the pictures stay",
                                      "tarvoctl orders delete --yes", runOrdersDelete);
  remove.operand("ORDER", gone.orders, "Numbers in the list, or handles (0x...); all")
      .flag("--yes", gone.yes, "Do not ask")
      .more(
          "All are those that 'orders list' shows, but for what the device keeps for a\n"
          "transfer. What cannot be read goes only where its handle is named.");
}

}  // namespace tarvo::tools
