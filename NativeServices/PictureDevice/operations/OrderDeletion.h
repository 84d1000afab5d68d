// Deleting the orders of a PTP device once they are done: its marker files, and its order data
// sets.
#pragma once

#include <cstdint>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Main thread only. Each ends at the first failure and gives its status; failing to find out what
/// there is to delete is one.
class OrderDeletion {
 public:
  /// `device` is lent.
  explicit OrderDeletion(PTPTransactions& device) : device_(device) {}

  /// By their whole names, while they are read by the beginnings of their names: intended. A file
  /// without information is passed over.
  Status deleteMarkers();
  /// Every e-mail order, then every print order, by the vendor's operation.
  Status deleteDataSets();

 private:
  Status deleteAllOfFormat(std::uint16_t format);

  PTPTransactions& device_;
};

}  // namespace tarvo
