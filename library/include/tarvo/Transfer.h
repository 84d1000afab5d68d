// How objects become files of this computer, and files objects.
//
//   tarvo::DownloadRun run(tarvo::DownloadOptions().folder("pictures").progress(show));
//   camera.visit(tarvo::ObjectChoice().others(tarvo::ObjectChoice::Others::kEverything),
//                [&](const tarvo::ObjectInfo& object) {
//                  camera.download(object, run);
//                  return true;
//                });
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "tarvo/Objects.h"

namespace tarvo {

/// What to do where a file of the name is there already.
enum class Existing : std::uint8_t {
  kRefuse,      ///< raises kExists
  kOverwrite,   ///< replaced once the new one is whole
  kKeepBoth,    ///< the new one is called "NAME (2).EXT", "NAME (3).EXT" ...
  kKeepOthers,  ///< the same, unless one of these names has the same content: that is kept alone
};

/// Told as bytes move, some times a second at least: `done` of `size` bytes of one object, `size` 0
/// where it is not known. False cancels. It may call nothing of the library; what it raises comes
/// out of the transfer, which is cancelled.
using TransferProgress = std::function<bool(std::uint64_t done, std::uint64_t size)>;

/// Told of bytes of one object, which belong at `offset` in it and are lent for the call. It may
/// call nothing of the library and raises nothing.
using TransferContent = std::function<void(std::uint64_t offset, std::span<const std::byte> bytes)>;

/// Each call gives the options back, so that they can be chained.
class TARVO_API DownloadOptions {
 public:
  DownloadOptions();
  /// Where files go; it must exist. "." where nothing is said. Nothing is written outside of it.
  DownloadOptions& folder(std::string path);
  /// A file's name in place of the object's own.
  DownloadOptions& name(std::string name);
  DownloadOptions& existing(Existing what);
  /// The small picture in place of the object, as "NAME.thumb.jpg".
  DownloadOptions& thumbnail(bool is = true);
  /// Told of each object whose transfer begins, before its progress.
  DownloadOptions& begin(std::function<void(const ObjectInfo& object)> told);
  DownloadOptions& progress(TransferProgress told);
  /// Told of the bytes as they come, for a checksum for example. Not of what lies here from an
  /// earlier attempt, nor of a file on a volume, which the kernel copies.
  DownloadOptions& content(TransferContent told);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// A file that was made, or found. A value.
class TARVO_API Downloaded {
 public:
  struct Data;
  explicit Downloaded(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  const std::string& path() const;
  /// Bytes, and how many of them were there from an earlier attempt that was cut.
  std::uint64_t size() const;
  std::uint64_t resumed() const;
  /// Existing::kKeepOthers: the file was there, with the same content.
  bool wasThere() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// Many downloads into one folder: none of them takes the file of another for its own, or replaces
/// it, however names repeat. One thread.
class TARVO_API DownloadRun {
 public:
  explicit DownloadRun(DownloadOptions options = {});

  const DownloadOptions& options() const;
  /// An object that isThere() will be asked about: of several of one name and size a file may be
  /// any, so none of them counts as there.
  void expect(const ObjectInfo& object);
  /// Whether the folder has the object already: a file of its name, numbered or not, with its size
  /// and, within two seconds, its date. That file is no other object's of this run then, unless
  /// this only `looksAhead`.
  bool isThere(const ObjectInfo& object, bool looksAhead = false);

  struct Data;
  Data& data() { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

class TARVO_API UploadOptions {
 public:
  UploadOptions();
  /// Ids and handles; 0, and where nothing is said, lets the device choose.
  UploadOptions& store(std::uint32_t id);
  UploadOptions& folder(std::uint32_t handle);
  UploadOptions& begin(std::function<void(const std::string& name, std::uint64_t size)> told);
  UploadOptions& progress(TransferProgress told);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// An object that was made of a file. A value.
class TARVO_API Uploaded {
 public:
  struct Data;
  explicit Uploaded(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  std::uint32_t handle() const;
  const std::string& name() const;
  std::uint64_t size() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// "PATH, 2412034 bytes".
TARVO_API std::ostream& operator<<(std::ostream& out, const Downloaded& file);
TARVO_API std::ostream& operator<<(std::ostream& out, const Uploaded& object);

}  // namespace tarvo
