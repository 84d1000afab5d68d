// One device from its arrival until it is done with: the import's child, its objects, and in which
// state all that is.
//
//   connecting -> looking -> ready -> importing -> done -> deleting -> done
//   failed and gone from everywhere, and for good
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/Child.h"
#include "relay/ImportModel.h"
#include "relay/Thumbnails.h"

namespace tarvo::relay {

enum class SessionState : std::uint8_t {
  kConnecting,
  kLooking,
  kReady,
  kImporting,
  kDone,
  kDeleting,
  kFailed,
  kGone,
};

/// What is known beside the objects.
struct Standing {
  SessionState state = SessionState::kConnecting;
  bool isHere = true;   ///< the device; what was done stays to be seen without it
  bool wasCut = false;  ///< an import, by the end of the device
  bool isCancelling = false;
  std::string device{};
  std::string folder{};
  std::optional<std::uint64_t> battery{};  ///< percent
  std::optional<std::uint64_t> free{};     ///< bytes where the pictures go
  std::uint64_t orders = 0;                ///< on the device
  bool wantsOrders = true;
  std::uint64_t looked = 0;  ///< objects met so far

  std::uint64_t files = 0, ofFiles = 0;
  std::uint64_t bytes = 0, ofBytes = 0;
  std::uint64_t rate = 0;  ///< bytes a second
  std::uint64_t secondsLeft = 0;

  /// Of the last import; what is kept and deleted, of all there were in this session.
  std::uint64_t fetched = 0, known = 0, failed = 0, noRoom = 0, deleted = 0, kept = 0;
  std::uint64_t ordersDone = 0;
  bool wasCancelled = false;

  std::optional<ChildEnd::Kind> end{};  ///< how the child has left too early
  std::string problem{};                ///< in words of the import, or of the child
  std::string advice{};
  std::vector<std::string> notes{};       ///< what was to be said, the last kMostNotes
  std::vector<std::string> unreadable{};  ///< parts of the device, as many
};

class SessionObserver {
 public:
  virtual ~SessionObserver() = default;
  /// The standing, or a sum of the objects.
  virtual void standingChanged() = 0;
  /// Rows from `first` on have come.
  virtual void rowsAdded(std::size_t first) = 0;
  virtual void rowChanged(std::size_t row) = 0;
  virtual void rowsCleared() = 0;
  virtual void thumbnailCame(std::size_t row) = 0;
};

/// Main thread only. A command that does not fit the state does nothing.
class ImportSession : private ChildListener {
 public:
  static constexpr std::size_t kMostNotes = 50;

  /// `words` start the conversation. Nothing happens before begin(), which is for once.
  ImportSession(std::vector<std::string> words, SessionObserver& observer,
                const ChildLimits& limits = {});
  ~ImportSession() override;

  void begin();
  void choose(std::size_t row, bool isChosen);
  void chooseAll(bool isChosen);
  void setWantsOrders(bool wants);
  /// Fetches what is chosen.
  void import();
  void cancel();
  /// Deletes from the device what was imported in this session.
  void deleteImported();
  /// Ends the conversation; `ended` is called when the child is no more, which may be at once.
  void close(std::function<void()> ended);

  /// Small pictures of these rows are wanted, in this order, and of no others.
  void look(const std::vector<std::size_t>& rows);
  /// Of a row; null where it has not come yet.
  const Thumbnail* thumbnail(std::size_t row) { return thumbnails_.find(model_.at(row).id); }

  const Standing& standing() const { return standing_; }
  const ImportModel& model() const { return model_; }
  bool mayChoose() const;
  /// Whether there is something to import.
  bool mayImport() const;
  bool mayDelete() const;

 private:
  using Json = PropertyDictionary;
  using State = SessionState;
  struct Handler;

  void heard(const std::string& event, const Json& json) override;
  void turnEnded() override;
  void ended(const ChildEnd& end) override;

  void hello(const Json& json);
  void looking(const Json& json);
  void object(const Json& json);
  void listed(const Json& json);
  void started(const Json& json);
  void progress(const Json& json);
  void fetched(const Json& json);
  void known(const Json& json);
  void failed(const Json& json);
  void noRoom(const Json& json);
  void safe(const Json& json);
  void deleted(const Json& json);
  void kept(const Json& json);
  void orderPicture(const Json& json);
  void done(const Json& json);
  void deletedAll(const Json& json);
  void warning(const Json& json);
  void unreadable(const Json& json);
  void error(const Json& json);
  void refused(const Json& json);
  void gone(const Json& json);
  void thumbnailCame(const Json& json);

  bool is(State state) const { return standing_.state == state; }
  void enter(State state);
  /// `json` has a "message" or a "why", and an "advice".
  void takeProblem(const Json& json);
  void mark(const Json& json, Picture::State state);
  void note(std::vector<std::string>& notes, std::string text);
  void say(const Json& command);
  void askForThumbnails();
  void deleteSome();

  std::vector<std::string> words_;
  SessionObserver& observer_;
  ChildLimits limits_;
  std::unique_ptr<Child> child_;
  ImportModel model_;
  Thumbnails thumbnails_;
  Standing standing_;
  std::deque<std::uint64_t> toDelete_;
  std::size_t rowsTold_ = 0;  ///< to the observer
  bool isChanged_ = false;
  std::function<void()> closed_;
};

}  // namespace tarvo::relay
