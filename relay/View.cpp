#include "relay/View.h"

#include <algorithm>

#include "Utilities/Printable.h"

namespace tarvo::relay {
namespace {

using State = SessionState;

/// Each on a line of its own.
std::string lines(const std::vector<std::string>& texts) {
  return joined(texts, "\n");
}

Word wordOf(ChildEnd::Kind end) {
  using Kind = ChildEnd::Kind;
  switch (end) {
    case Kind::kCrashed:
      return Word::kCrashed;
    case Kind::kHung:
      return Word::kHung;
    case Kind::kNonsense:
      return Word::kNonsense;
    case Kind::kNotStarted:
      return Word::kNotStarted;
    case Kind::kLeft:
    case Kind::kFailed:
      break;
  }
  return Word::kStopped;
}

/// Builds a view by the state.
class Painter {
 public:
  Painter(const ImportSession& session, const Texts& texts)
      : session_(session), now_(session.standing()), sums_(session.model().sums()), texts_(texts) {}

  View paint() {
    view_.title = now_.device.empty() ? texts_(Word::kNoDevice) : now_.device;
    std::vector<std::string> facts;
    if (now_.battery) facts.push_back(texts_(Word::kBattery, {texts_.number(*now_.battery)}));
    if (now_.free) facts.push_back(texts_(Word::kFree, {texts_.size(*now_.free)}));
    view_.facts = joined(facts, " · ");
    view_.wantsOrders = now_.wantsOrders;
    paintState();
    return std::move(view_);
  }

 private:
  void paintState() {
    switch (now_.state) {
      case State::kConnecting:
        view_.headline = texts_(Word::kConnecting);
        view_.showsProgress = true;
        return;
      case State::kLooking:
        return looking();
      case State::kReady:
        return ready();
      case State::kImporting:
        return importing();
      case State::kDeleting:
        view_.headline = texts_(Word::kDeleting);
        view_.showsProgress = true;
        return offer(MainAction::kCancel, texts_(Word::kCancel), !now_.isCancelling);
      case State::kDone:
        return done();
      case State::kFailed:
        return failed();
      case State::kGone:
        view_.headline = texts_(Word::kGone);
        view_.isProblem = now_.wasCut;
        view_.help = lines(withoutNone({now_.problem, texts_(Word::kGoneAdvice)}));
        view_.details = outcome();
        return offer(MainAction::kRetry, texts_(Word::kRetry), true);
    }
  }

  void offer(MainAction action, std::string label, bool isPossible) {
    view_.action = action;
    view_.actionLabel = std::move(label);
    view_.isActionPossible = isPossible;
  }

  void looking() {
    view_.headline = texts_(now_.isCancelling ? Word::kCancelling : Word::kLooking);
    const auto met = std::max<std::uint64_t>(now_.looked, session_.model().size());
    if (met > 0) view_.details = texts_(Word::kSoFar, {texts_.number(met)});
    view_.showsProgress = true;
    offerOrders();
    offer(MainAction::kCancel, texts_(Word::kCancel), !now_.isCancelling);
  }

  void ready() {
    view_.headline = sums_.news == 0 ? texts_(Word::kNewNone)
                                     : texts_.counted(sums_.news, Word::kNewOne, Word::kNewMany);
    std::vector<std::string> details = {
        texts_(Word::kOnDevice, {texts_.number(session_.model().size())})};
    if (sums_.news > 0) details.push_back(chosen());
    view_.details = joined(details, " · ");
    offerOrders();
    view_.help = remarks();
    if (session_.mayImport() || sums_.news > 0) return offerImport();
    offer(MainAction::kOpenFolder, texts_(Word::kOpenFolder), !now_.folder.empty());
  }

  std::string chosen() const {
    return texts_(Word::kChosen, {texts_.number(sums_.chosen), texts_.size(sums_.chosenBytes)});
  }

  void offerImport() {
    const bool onlyOrders = sums_.chosen == 0 && session_.mayImport();
    offer(MainAction::kImport,
          onlyOrders ? texts_(Word::kImportOrders)
                     : texts_.counted(sums_.chosen, Word::kImportOne, Word::kImportMany),
          session_.mayImport());
  }

  void offerOrders() {
    if (now_.orders > 0)
      view_.orders = texts_.counted(now_.orders, Word::kOrdersOne, Word::kOrdersMany);
  }

  void importing() {
    view_.headline = texts_(now_.isCancelling ? Word::kCancelling : Word::kImporting);
    view_.details = texts_(Word::kFileOf, {texts_.number(now_.files), texts_.number(now_.ofFiles)});
    view_.showsProgress = true;
    if (now_.ofBytes > 0) {
      view_.fraction =
          std::min(static_cast<double>(now_.bytes) / static_cast<double>(now_.ofBytes), 1.0);
      view_.progress = texts_(now_.secondsLeft > 0 ? Word::kProgressLeft : Word::kProgress,
                              {texts_.size(now_.bytes), texts_.size(now_.ofBytes),
                               texts_.size(now_.rate), texts_.duration(now_.secondsLeft)});
    }
    offer(MainAction::kCancel, texts_(Word::kCancel), !now_.isCancelling);
  }

  void done() {
    view_.headline = now_.fetched == 0
                         ? texts_(Word::kDoneNone)
                         : texts_.counted(now_.fetched, Word::kDoneOne, Word::kDoneMany);
    view_.details = outcome();
    view_.isProblem = !now_.problem.empty() || now_.failed + now_.noRoom > 0;
    view_.help = lines(withoutNone({now_.problem, helpfulAdvice(), remarks()}));
    view_.canDelete = session_.mayDelete();
    if (session_.mayImport()) return offerImport();
    offer(MainAction::kOpenFolder, texts_(Word::kOpenFolder), !now_.folder.empty());
  }

  void failed() {
    view_.isProblem = true;
    const bool hasBegun = now_.ofFiles > 0;
    const bool isOrderly = !now_.end || (*now_.end == ChildEnd::Kind::kFailed && !hasBegun);
    view_.headline = texts_(isOrderly ? Word::kFailed : wordOf(*now_.end));
    view_.details = outcome();
    view_.help = lines(withoutNone(
        {now_.problem, helpfulAdvice(), hasBegun ? texts_(Word::kNothingLost) : "", remarks()}));
    offer(MainAction::kRetry, texts_(Word::kRetry), true);
  }

  /// The import's words have it mostly.
  std::string helpfulAdvice() const {
    return now_.problem.find(now_.advice) == std::string::npos ? now_.advice : "";
  }

  std::string outcome() const {
    std::vector<std::string> parts;
    const auto add = [&](std::uint64_t count, Word word) {
      if (count > 0) parts.push_back(texts_(word, {texts_.number(count)}));
    };
    if (now_.wasCancelled) parts.push_back(texts_(Word::kDoneCancelled));
    if (now_.state != State::kDone && now_.fetched > 0)
      parts.push_back(texts_.counted(now_.fetched, Word::kDoneOne, Word::kDoneMany));
    add(now_.known, Word::kKnown);
    add(now_.failed, Word::kFailedFiles);
    add(now_.noRoom, Word::kNoRoom);
    add(now_.deleted, Word::kDeleted);
    add(now_.kept, Word::kKept);
    add(now_.ordersDone, Word::kOrdersDone);
    return joined(parts, " · ");
  }

  std::string remarks() const {
    constexpr std::size_t kMost = 5;
    std::vector<std::string> remarks;
    if (session_.model().isCut()) remarks.push_back(texts_(Word::kNotShown));
    for (const auto& each : now_.unreadable)
      remarks.push_back(texts_(Word::kUnreadable, {each}));
    remarks.insert(remarks.end(), now_.notes.begin(), now_.notes.end());
    if (remarks.size() > kMost) {
      remarks.resize(kMost);
      remarks.push_back("…");
    }
    return lines(remarks);
  }

  static std::vector<std::string> withoutNone(std::vector<std::string> texts) {
    std::erase(texts, "");
    return texts;
  }

  const ImportSession& session_;
  const Standing& now_;
  const ImportModel::Sums& sums_;
  const Texts& texts_;
  View view_{};
};

}  // namespace

View viewOf(const ImportSession& session, const Texts& texts) {
  return Painter(session, texts).paint();
}

std::string markOf(const Picture& picture, const Texts& texts) {
  switch (picture.state) {
    case Picture::State::kFetched:
    case Picture::State::kSafe:
      return texts(Word::kCellFetched);
    case Picture::State::kKnown:
      return texts(Word::kCellKnown);
    case Picture::State::kFailed:
      return texts(Word::kCellFailed);
    case Picture::State::kNoRoom:
      return texts(Word::kCellNoRoom);
    case Picture::State::kDeleted:
      return texts(Word::kCellDeleted);
    case Picture::State::kWaiting:
      break;
  }
  return picture.isNew ? texts(Word::kCellNew) : "";
}

std::string pictureInWords(const Picture& picture, const Texts& texts) {
  std::vector<std::string> words = {picture.name};
  const std::string mark = markOf(picture, texts);
  words.push_back(mark.empty() ? texts(Word::kCell) : mark);
  if (picture.isChosen) words.push_back(texts(Word::kCellChosen));
  return joined(words);
}

}  // namespace tarvo::relay
