// The orders that a PTP device keeps, as lists: from its vendor data sets, or from the marker files
// of devices without them.
//
//   OrderLists lists(device, assetCounts, report);
//   EmailOrders orders;
//   const Status status = lists.fillInEmailOrderList(orders, handles, context);
//
// What is left out is in the report.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "NativeServices/PictureDevice/operations/ReadingReport.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Format of an order marker file on a device (ISO 15740 calls it DPOF).
inline constexpr std::uint16_t kMarkerFormat = 0x3006;

/// Whether a file is an order marker for e-mail ("EMAILTAG...", "AUTXFER...") or for prints
/// ("PRINTTAG...", "AUTPRINT..."), by the beginning of its name.
bool isEmailMarker(std::string_view name);
bool isPrintMarker(std::string_view name);

/// What else counts when order data sets are read.
struct OrderContext {
  /// The pictures that may be sent now, where the device waits for a transfer; otherwise all may.
  std::optional<std::unordered_set<std::uint32_t>> allowedAssets;
  /// Who the recipients of e-mail orders are.
  ContactsByHandle contacts;
};

/// Main thread only.
class OrderLists {
 public:
  /// All are lent. `assetCounts` gets the number of pictures of each order by its handle.
  OrderLists(PTPTransactions& device, std::map<std::uint32_t, std::uint32_t>& assetCounts,
             ReadingReport& report)
      : device_(device), assetCounts_(assetCounts), report_(report) {}

  /// Appends the order data sets of these handles, in order. An order that cannot be read is left
  /// out, and so are recipients that are no contacts and pictures without information; one that was
  /// cut short is in the list, and unread in the report. 0, or the code of an XTPTPException, after
  /// which what was appended stays. Raises NSRangeException for an order that ends early.
  [[nodiscard]] Status fillInEmailOrderList(EmailOrders& list, const ObjectHandles& orders,
                                            const OrderContext& context);
  /// The same; here an order that cannot be read, and one whose picture has no information, ends
  /// the reading with 0x2002.
  [[nodiscard]] Status fillInPrintOrderList(PrintOrders& list, const ObjectHandles& orders,
                                            const OrderContext& context);

  /// Appends the orders of the marker files, which are read in `defaultEncoding` (an iconv name).
  /// A marker that cannot be read is left out.
  void fillInFromMarkers(EmailOrders& list, const std::string& defaultEncoding);
  void fillInFromMarkers(PrintOrders& list, const std::string& defaultEncoding);

 private:
  void appendEmailOrder(EmailOrders& list, std::uint32_t handle, const OrderContext& context);
  [[nodiscard]] Status appendPrintOrder(PrintOrders& list, std::uint32_t handle,
                                        const OrderContext& context);
  /// File name of an object, without folders; none without information.
  std::optional<std::string> assetName(std::uint32_t handle);
  /// Downloads each marker that `isWanted` for `parse`, and removes it again.
  void eachMarker(bool (*isWanted)(std::string_view),
                  const std::function<void(const std::string& path)>& parse);

  PTPTransactions& device_;
  std::map<std::uint32_t, std::uint32_t>& assetCounts_;
  ReadingReport& report_;
};

// Deleting the orders of a PTP device once they are done: its marker files, and its order data
// sets.

/// Main thread only. Each ends at the first failure and gives its status; failing to find out what
/// there is to delete is one.
class OrderDeletion {
 public:
  /// `device` is lent.
  explicit OrderDeletion(PTPTransactions& device) : device_(device) {}

  /// By their whole names, while they are read by the beginnings of their names. A file
  /// without information is passed over.
  [[nodiscard]] Status deleteMarkers();
  /// Every e-mail order, then every print order, by the vendor's operation.
  [[nodiscard]] Status deleteDataSets();

 private:
  [[nodiscard]] Status deleteAllOfFormat(std::uint16_t format);

  PTPTransactions& device_;
};

// The orders for transfer over a wireless network: the one that waits, and how the pictures of the
// other orders join it.

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
