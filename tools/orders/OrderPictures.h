// The pictures of orders as files, in one folder an order.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "tarvo/Orders.h"
#include "tools/access/Batch.h"
#include "tools/output/Progress.h"

namespace tarvo::tools {

/// Main thread only. The folders lie in `target`, which is made; their names hold nothing that a
/// device could lead out of it with.
class OrderPictures {
 public:
  /// Everything is lent.
  OrderPictures(ToolContext& context, Device& device, Batch& batch, std::string target,
                std::size_t count);

  /// Fetches all pictures of an order, each a result of the batch, and writes beside them what the
  /// order says, with the file of each picture (order.json). The folder is the order's own: one
  /// that says another order is left alone.
  void fetch(const Order& order);

 private:
  std::string folderFor(const Order& order);
  void note(const Order& order, const std::string& folder);
  void fetchOne(const Order& order, std::size_t index, const std::string& folder);
  void fetchObject(const ObjectInfo& object, PropertyDictionary json, const Order& order,
                   PropertyDictionary& noted, const std::string& folder);
  /// The handle of a picture that is known by its name alone, by the first object of that name.
  std::optional<std::uint32_t> handleOf(const OrderPicture& picture);

  ToolContext& context_;
  Device& device_;
  Batch& batch_;
  std::string target_;
  Progress progress_;
  std::set<std::string> folders_;  ///< of this run
  PropertyDictionary before_;      ///< what the folder's order.json said
  PropertyDictionary noted_;       ///< what it says now
  /// Handles by name; none until a marker file asked for one.
  std::optional<std::map<std::string, std::vector<std::uint32_t>>> names_;
};

/// "2 email - Holiday": number, kind and subject, fit to be a folder's name. Where that is another
/// order's, a number follows.
std::string folderNameOf(const Order& order);

}  // namespace tarvo::tools
