// What the window says, in the person's language: English, or German where the session is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::relay {

enum class Language : std::uint8_t { kEnglish, kGerman };

/// By LANGUAGE, LC_ALL, LC_MESSAGES and LANG, as gettext reads them. `variable` answers the value
/// of one of them; empty text where it is not set.
Language languageOf(const std::function<std::string(const char*)>& variable);
/// Of this process.
Language languageOfSession();

/// A "%1" or "%2" in a text stands for an argument.
enum class Word : std::uint8_t {
  kConnecting,
  kLooking,
  kSoFar,
  kNewOne,
  kNewMany,
  kNewNone,
  kOnDevice,
  kChosen,
  kImporting,
  kFileOf,
  kCancelling,
  kProgress,
  kProgressLeft,
  kDeleting,
  kDoneOne,
  kDoneMany,
  kDoneNone,
  kDoneCancelled,
  kKnown,
  kFailedFiles,
  kNoRoom,
  kDeleted,
  kKept,
  kOrdersDone,
  kFailed,
  kCrashed,
  kHung,
  kNonsense,
  kNotStarted,
  kStopped,
  kNothingLost,
  kGone,
  kGoneAdvice,
  kImportOne,
  kImportMany,
  kImportOrders,
  kCancel,
  kOpenFolder,
  kRetry,
  kOrdersOne,
  kOrdersMany,
  kDelete,
  kDeleteQuestion,
  kDeleteDetails,
  kDeleteYes,
  kBattery,
  kFree,
  kShowOther,
  kShowVolume,
  kCell,
  kCellNew,
  kCellChosen,
  kCellFetched,
  kCellKnown,
  kCellFailed,
  kCellNoRoom,
  kCellDeleted,
  kNotShown,
  kSeconds,
  kMinutes,
  kHours,
  kPictures,
  kProgressName,
  kUnreadable,
  kNoDevice,
  kCount,
};

class Texts {
 public:
  explicit Texts(Language language) : language_(language) {}

  std::string operator()(Word word, const std::vector<std::string>& arguments = {}) const;
  /// `one` for 1, else `many` with the number.
  std::string counted(std::uint64_t count, Word one, Word many) const;
  std::string number(std::uint64_t number) const;
  /// "12.3 MB".
  std::string size(std::uint64_t bytes) const;
  /// "2 min"
  std::string duration(std::uint64_t seconds) const;

 private:
  Language language_;
};

}  // namespace tarvo::relay
