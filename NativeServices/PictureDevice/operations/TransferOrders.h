// The orders for transfer over a wireless network: the one that waits, and how the pictures of the
// other orders join it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "NativeServices/PictureDevice/operations/ReadingReport.h"

namespace tarvo {

/// Main thread only. Everything raises NSRangeException for a data set that ends early. What cannot
/// be read, or was cut short, lowers the report.
class TransferOrders {
 public:
  /// Both are lent.
  TransferOrders(PTPTransactions& device, ReadingReport& report)
      : device_(device), report_(report) {}

  /// The first order for transfer; of handle 0 where there is none. One whose data set cannot be
  /// read has its handle alone. `assetCounts` gets the number of its pictures.
  TransferOrder first(std::map<std::uint32_t, std::uint32_t>& assetCounts);
  /// Number of pictures that the first order claims; 0 without one.
  std::int32_t firstCount();
  /// Puts the pictures of all e-mail orders, then those of all print orders, before those of
  /// `order`. Duplicates stay, and orders that cannot be read are passed over.
  void mergeOtherOrdersInto(TransferOrder& order);

 private:
  /// Reads each data set of a format with `read`.
  template <typename Read>
  void eachDataSet(std::uint16_t format, Read&& read);
  std::optional<XTPTPDataSet> readDataSet(std::uint32_t handle, std::uint16_t format);
  void noteCut(const XTPTPDataSet& dataSet, std::uint32_t handle);

  PTPTransactions& device_;
  ReadingReport& report_;
};

}  // namespace tarvo
