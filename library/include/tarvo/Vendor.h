// What only cameras of the maker have: albums, favourites, a shoebox, a display for computers, a
// database.
//
//   tarvo::VendorExtension extension(camera);
//   for (const std::uint32_t handle : extension.favourites()) show(camera.object(handle));
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/Device.h"

namespace tarvo {

/// Operations and formats are the maker's own ("XTO_...", "XTD_..."), beside ISO 15740. Each call
/// waits for the camera and raises Error as Device does; kUnsupported for what a camera does not
/// have. The device is held until both this and the Device have gone.
class TARVO_API VendorExtension {
 public:
  explicit VendorExtension(Device& device) : state_(device.state()) {}

  // Records beside the pictures, which no folder holds: by handles, in the order of the camera.

  std::vector<std::uint32_t> albums();
  std::vector<std::uint32_t> favourites();
  /// Gives how many there were. kRefused (0x2012) with how many are left, where the camera leaves
  /// some, as protected ones.
  std::size_t deleteFavourites();

  /// The file with the names of the albums, mostly text or a block of records; none where the
  /// camera keeps none. 8 MiB at most.
  std::optional<std::vector<std::byte>> albumNames();
  /// Puts a file in its place, whose name ends in ".lcb": any other is kMisuse (-9812), one that
  /// cannot be read kNotFound or kHost. The old file goes first, so that after any other error
  /// there may be none.
  void setAlbumNames(const std::string& path);

  /// A GUID in upper case, under which the camera files what it gets; none where it has none.
  /// kUnsupported where it cannot tell.
  std::optional<std::string> collectionID();
  /// Sets it, or takes it away, and gives what the camera has then: it may keep something else.
  /// kMisuse for what is no id.
  std::optional<std::string> setCollectionID(const std::optional<std::string>& id);
  /// Whether a text is one: "00112233-4455-6677-8899-AABBCCDDEEFF", in either case. Any thread.
  static bool isCollectionID(std::string_view text);

  /// Sends a shoebox file, or adds a picture to the shoebox. kNotFound and kHost for a file that
  /// cannot be read.
  void sendShoebox(const std::string& path);
  void addToShoebox(const std::string& path);

  /// The file of settings for a wireless network (NETCONF.XML) as the camera keeps it, passwords
  /// included; none where there are none.
  std::optional<std::vector<std::byte>> wirelessSettings();
  /// Shows something on the back of the camera: 1 byte to 1 MiB, whose form is the maker's. kMisuse
  /// for any other number.
  void display(std::span<const std::byte> request);

  /// Asks the camera's own database, and gives the rows as they come, 64 KiB at most in a piece and
  /// cut anywhere; false ends it. The camera is told to forget the query, whatever happens. From
  /// `onRows` the device may be asked for more.
  void query(const std::string& sql, const std::function<bool(std::string_view rows)>& onRows);

 private:
  std::shared_ptr<DeviceState> state_;
};

}  // namespace tarvo
