// What was imported before, on this computer by this user.
//
//   History history;
//   if (history.find(object.name(), object.size(), taken).empty()) fetch(object);
//   history.remember(fetched);
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "import/CalendarTime.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tarvo::importing {

/// One object that was put in its place. Texts are bytes as the device or the file system has them.
struct Remembered {
  std::string name{};  ///< of the object; compared without regard to ASCII case
  std::uint64_t size = 0;
  std::optional<CalendarTime> taken{};
  std::string fingerprint{};  ///< as fingerprintOf() has it; empty where it was not read
  std::string device{};       ///< serial number, for information
  std::uint32_t copies = 1;   ///< objects of one device that had name, size and date at once
  std::string path{};         ///< where it was put
  std::time_t imported = 0;   ///< when
};

/// The history cannot be used. what() is a sentence without its full stop.
class HistoryError : public std::exception {
 public:
  enum class Kind : std::uint8_t {
    kDamaged,   ///< found while it was used: the next opening mends it
    kNewer,     ///< a later version of this program made it; it is left as it is
    kReadOnly,  ///< neither it nor its folder can be written or made
    kFull,      ///< no room on the file system, or within the user's share
    kBusy,      ///< others held it for more than five seconds
    kOther,
  };
  HistoryError(Kind kind, std::string what) : kind_(kind), what_(std::move(what)) {}
  Kind kind() const noexcept { return kind_; }
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  Kind kind_;
  std::string what_;
};

/// An SQLite database for its owner alone, which processes may use at once; any thread, one at a
/// time. Every call may raise HistoryError. One that is damaged is put aside, never removed, and
/// what can be read of it is kept on.
class History {
 public:
  /// Of what was not used for longest the rest goes.
  static constexpr std::size_t kMostRecords = 200'000;

  /// $XDG_STATE_HOME/tarvo/imports.sqlite, else below ~/.local/state.
  static std::string defaultPath();

  /// Makes it, with the folders above it, where it is not there.
  explicit History(std::string path = defaultPath(), std::size_t most = kMostRecords);
  History(const History&) = delete;
  History& operator=(const History&) = delete;
  /// Notes what was found as used, if it can.
  ~History();

  /// What was to be said of the opening, a sentence; mostly empty.
  const std::string& note() const { return note_; }

  /// All of that name and size whose date is the same within the tolerance, or that have none, as
  /// the question has none; the latest first. What is found counts as used.
  std::vector<Remembered> find(std::string_view name, std::uint64_t size,
                               std::optional<CalendarTime> taken);

  /// All or none of them. One that find() would find, and that has the same fingerprint, gives way;
  /// the larger number of copies stays.
  void remember(std::span<const Remembered> objects);

  std::size_t size();

 private:
  struct Closer {
    void operator()(sqlite3* database) const;
    void operator()(sqlite3_stmt* statement) const;
  };
  using Database = std::unique_ptr<sqlite3, Closer>;
  using Statement = std::unique_ptr<sqlite3_stmt, Closer>;
  class Execution;
  class Transaction;

  [[noreturn]] void fail(sqlite3* database, int status) const;
  [[noreturn]] void fail(HistoryError::Kind kind, const std::string& why = "") const;
  Database connect(const std::string& path) const;
  Statement prepare(sqlite3* database, const std::string& text) const;
  void execute(const std::string& text) const;
  /// What a statement gives first.
  std::string answer(const std::string& text) const;
  void open();
  void prepareAll();
  /// Puts a damaged database aside; returns its new path.
  std::string putAside();
  /// How many objects of it were remembered anew.
  std::size_t salvage(const std::string& damaged);
  void put(const Remembered& object, std::time_t now);
  void beginReading();
  void endReading();
  void noteUse(std::time_t now);

  std::string path_;
  std::size_t most_;
  std::string note_;
  Database database_;
  Statement find_, update_, insert_, use_, trim_;
  std::optional<std::chrono::steady_clock::time_point> readingSince_;
  std::vector<std::int64_t> used_;  ///< ids that were found, and are not noted as used yet
};

}  // namespace tarvo::importing
