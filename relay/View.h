// What a window shows of a session, in words: everything that is not a widget.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "relay/ImportSession.h"
#include "relay/Texts.h"

namespace tarvo::relay {

enum class MainAction : std::uint8_t { kNone, kImport, kCancel, kOpenFolder, kRetry };

struct View {
  std::string title{};     ///< the device
  std::string facts{};     ///< battery, room
  std::string headline{};  ///< what goes on
  std::string details{};   ///< a line about it; empty: none
  std::string help{};      ///< what went wrong and what helps, lines; empty: nothing
  bool isProblem = false;
  bool showsProgress = false;
  std::optional<double> fraction{};  ///< of the whole; none where it is not known
  std::string progress{};
  MainAction action = MainAction::kNone;
  std::string actionLabel{};
  bool isActionPossible = false;
  std::string orders{};  ///< empty: there are none to choose
  bool wantsOrders = false;
  bool canDelete = false;
};

View viewOf(const ImportSession& session, const Texts& texts);
/// What a screen reader says of a picture: "TARV0001.JPG, new, chosen".
std::string pictureInWords(const Picture& picture, const Texts& texts);
/// What stands at a picture's edge; empty for one that only waits.
std::string markOf(const Picture& picture, const Texts& texts);

}  // namespace tarvo::relay
