// The objects of a device: pictures, films and folders, of a camera and of a volume alike.
//
//   camera.visit(tarvo::ObjectQuery().recursive(), [](const tarvo::ObjectInfo& object) {
//     std::cout << object.path() << "  " << object.size() << '\n';
//     return true;
//   });
#pragma once

#include <concepts>
#include <cstdint>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/Error.h"

namespace tarvo {

/// What is known of an object. A value: it stays as it was when the object or the device went.
class TARVO_API ObjectInfo {
 public:
  struct Data;
  explicit ObjectInfo(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// How PTP names it (ISO 15740, "Object handles"); 0 on a volume.
  std::uint32_t handle() const;
  /// As the device gives it, no file name before the library made one of it. UTF-8.
  const std::string& name() const;
  /// With the folders above it: "DCIM/100TARVO/TARV0001.JPG". Only where the query asked for it,
  /// else the name. On a volume the bytes that the file system has.
  const std::string& path() const;
  /// Bytes. A camera cannot tell more than 4 GiB - 1, which stands for everything above.
  std::uint64_t size() const;
  /// Of the small picture; 0 where there is none, and on a volume.
  std::uint32_t thumbnailSize() const;
  /// What it is (ISO 15740, "Object formats"): 0x3801 a JPEG picture, 0x3001 a folder.
  std::uint16_t format() const;
  bool isFolder() const;
  /// Neither a folder nor a regular file, as a link on a volume is.
  bool isSpecial() const;
  /// Not to be deleted or changed: the device says so (ISO 15740, "ProtectionStatus"), or on a
  /// volume its owner may not write the file.
  bool isProtected() const;
  /// When it was changed last, by this machine's clock; none where the device does not say.
  std::optional<std::time_t> modified() const;
  /// As the device writes them: "20240615T120000" with a fraction and a zone or without (ISO 15740,
  /// "DateTime strings"); empty where it does not say.
  const std::string& captureDate() const;
  const std::string& modificationDate() const;
  /// Of the folder and of the store that hold it; 0 for the top, and on a volume.
  std::uint32_t parent() const;
  std::uint32_t store() const;
  /// Pixels; 0 for what is no picture.
  std::uint32_t width() const;
  std::uint32_t height() const;

  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<const Data> data_;
};

TARVO_API std::ostream& operator<<(std::ostream& out, const ObjectInfo& object);

/// Which objects of a device; without further ado those at the top. Each call gives the query back.
class TARVO_API ObjectQuery {
 public:
  ObjectQuery();
  /// Also all that lies below, with paths.
  ObjectQuery& recursive(bool is = true);
  /// Of one store, by its id; 0 is every one.
  ObjectQuery& store(std::uint32_t id);
  /// Of one format alone, wherever it lies unless a folder is named; 0 is every one.
  ObjectQuery& format(std::uint16_t code);
  /// In one folder, by its handle; 0 is the top.
  ObjectQuery& folder(std::uint32_t handle);
  /// On a volume: in one folder, by its path; empty is the top.
  ObjectQuery& folder(std::string path);
  /// On a volume: neither sizes nor dates are looked up, which is faster.
  ObjectQuery& namesOnly(bool is = true);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// Which objects by their names, as people write them. Each call gives the choice back.
class TARVO_API ObjectChoice {
 public:
  /// What counts besides what is named.
  enum class Others : std::uint8_t { kNone, kPictures, kEverything };

  ObjectChoice();
  /// Handles (decimal or 0x...), names, and patterns with "*", "?" and "[...]" (glob(7)); one with
  /// a slash is compared with the whole path. A name means the first object that has it. Patterns
  /// find neither hidden names nor folders. On a volume there are no handles.
  ObjectChoice& names(std::vector<std::string> texts);
  /// Names and patterns without regard to the case of letters (of names those of ASCII); a name
  /// means what has it exactly, where there is such an object, else the first that has it but for
  /// case, which is given at the end.
  ObjectChoice& ignoringCase(bool is = true);
  /// Patterns find folders, too.
  ObjectChoice& folders(bool is = true);
  /// Besides: pictures and films by their names' endings, or all that there is. Folders of a camera
  /// are never among them.
  ObjectChoice& others(Others which);
  /// As ObjectQuery has it.
  ObjectChoice& namesOnly(bool is = true);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// What becomes of each object of a visit. From all of these the device may be asked for more.
class TARVO_API ObjectVisitor {
 public:
  ObjectVisitor();
  /// Converts, so that a lambda will do: false ends the visit.
  template <std::predicate<const ObjectInfo&> Function>
  ObjectVisitor(Function function) : ObjectVisitor() {  // NOLINT(google-explicit-constructor)
    onObject([function = std::move(function)](const ObjectInfo& object, bool) mutable {
      return function(object);
    });
  }

  /// `isNamed`: one of ObjectChoice::names() means it. False ends the visit.
  ObjectVisitor& onObject(std::function<bool(const ObjectInfo& object, bool isNamed)> visit);
  /// An object, or on a volume a folder, that cannot be read: its handle, or its path. False ends
  /// the visit. Without it the first of these ends the visit with its error.
  ObjectVisitor& onUnreadable(
      std::function<bool(std::uint32_t handle, const std::string& path, const Error& error)> visit);
  /// A name or pattern that nothing has, at the end. Without it the first of these ends the visit
  /// with kNotFound.
  ObjectVisitor& onUnmatched(std::function<void(const std::string& text)> visit);
  /// Each object that is looked at, whether it is meant or not.
  ObjectVisitor& onLooked(std::function<void()> looked);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// Whether a file is a picture or a film by its name's ending, without regard to case; never a
/// hidden one. Any thread.
TARVO_API bool isPictureOrFilm(std::string_view name);
/// Whether it is a film, the same way.
TARVO_API bool isFilm(std::string_view name);

}  // namespace tarvo
