// What the user of a camera marked there: pictures to be sent by e-mail, printed or transferred.
//
// A device keeps orders as text files ("marker files") or as vendor data sets. An order from a
// marker file has no record and no handle of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarvo {

/// The e-mail order data set (formats 0xB204 and 0xB207). The numbers are the device's own.
struct EmailOrderRecord {
  std::string orderID{};  ///< canonical GUID text, upper case
  std::uint16_t serviceType = 0;
  std::string senderAddress{};
  std::vector<std::uint32_t> destContacts{};  ///< handles of the recipients' contacts
  std::string subject{};
  std::string body{};
  std::vector<std::uint32_t> assetHandles{};  ///< the pictures

  friend bool operator==(const EmailOrderRecord&, const EmailOrderRecord&) = default;
};

/// The print order data set (formats 0xB205 and 0xB208); it names exactly one picture.
struct PrintOrderRecord {
  std::string orderID{};
  std::string accessCode{};
  std::uint16_t serviceType = 0;
  std::uint16_t type = 0;
  std::uint16_t multiUp = 0;
  std::uint32_t paperSize = 0;
  std::uint16_t assetsRemaining = 0;
  std::uint16_t quantity = 0;  ///< copies
  std::uint16_t enhance = 0;
  std::string annotation{};
  std::uint32_t date = 0;
  std::uint32_t assetCompressedSize = 0;  ///< bytes
  std::uint32_t asset = 0;                ///< handle of the picture

  friend bool operator==(const PrintOrderRecord&, const PrintOrderRecord&) = default;
};

/// The transfer order data set (formats 0xB206 and 0xB209).
struct TransferOrderRecord {
  std::string orderID{};
  std::uint16_t type = 0;
  std::string sender{};
  std::vector<std::uint32_t> assetHandles{};

  friend bool operator==(const TransferOrderRecord&, const TransferOrderRecord&) = default;
};

struct EmailOrder {
  /// At least one where the order comes from a marker file.
  std::vector<std::string> destAddresses{};
  std::vector<std::string> assets{};  ///< file names, without folders
  /// As read from a vendor data set, where the order is one; of its pictures those that may be
  /// sent now.
  std::optional<EmailOrderRecord> record{};
  std::uint32_t handle = 0;  ///< "XTPTPObjectHandleKey"; 0 for an order of a marker file

  friend bool operator==(const EmailOrder&, const EmailOrder&) = default;
};

struct PrintOrder {
  std::int32_t quantity = 1;          ///< copies; at least 1 where the order is of a marker file
  std::vector<std::string> assets{};  ///< one file name, or none
  std::optional<PrintOrderRecord> record{};
  std::uint32_t handle = 0;

  friend bool operator==(const PrintOrder&, const PrintOrder&) = default;
};

struct TransferOrder {
  TransferOrderRecord record{};
  std::uint32_t handle = 0;

  friend bool operator==(const TransferOrder&, const TransferOrder&) = default;
};

using EmailOrders = std::vector<EmailOrder>;
using PrintOrders = std::vector<PrintOrder>;

}  // namespace tarvo
