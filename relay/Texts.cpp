#include "relay/Texts.h"

#include <glib.h>

#include <array>
#include <cstdlib>

#include "platform/foundation/GlibPtr.h"

namespace tarvo::relay {
namespace {

struct Row {
  Word word;
  const char* english;
  const char* german;
};

constexpr auto kTexts = std::to_array<Row>({
    {Word::kConnecting, "Connecting", "Verbindung wird aufgebaut"},
    {Word::kLooking, "Looking for pictures", "Bilder werden gesucht"},
    {Word::kSoFar, "%1 found so far", "Bisher %1 gefunden"},
    {Word::kNewOne, "1 new picture", "1 neues Bild"},
    {Word::kNewMany, "%1 new pictures", "%1 neue Bilder"},
    {Word::kNewNone, "No new pictures", "Keine neuen Bilder"},
    {Word::kOnDevice, "%1 on the device", "%1 auf dem Gerät"},
    {Word::kChosen, "%1 chosen, %2", "%1 ausgewählt, %2"},
    {Word::kImporting, "Importing", "Import läuft"},
    {Word::kFileOf, "%1 of %2", "%1 von %2"},
    {Word::kCancelling, "Cancelling", "Wird abgebrochen"},
    {Word::kProgress, "%1 of %2, %3 a second", "%1 von %2, %3 je Sekunde"},
    {Word::kProgressLeft, "%1 of %2, %3 a second, about %4 left",
     "%1 von %2, %3 je Sekunde, noch etwa %4"},
    {Word::kDeleting, "Deleting from the device", "Wird vom Gerät gelöscht"},
    {Word::kDoneOne, "1 picture imported", "1 Bild importiert"},
    {Word::kDoneMany, "%1 pictures imported", "%1 Bilder importiert"},
    {Word::kDoneNone, "Nothing was imported", "Es wurde nichts importiert"},
    {Word::kDoneCancelled, "Cancelled; what was imported stays",
     "Abgebrochen; was importiert wurde, bleibt"},
    {Word::kKnown, "%1 were here already", "%1 waren schon hier"},
    {Word::kFailedFiles, "%1 could not be fetched", "%1 konnten nicht geholt werden"},
    {Word::kNoRoom, "%1 had no room on the disk", "Für %1 war kein Platz auf der Festplatte"},
    {Word::kDeleted, "%1 deleted from the device", "%1 vom Gerät gelöscht"},
    {Word::kKept, "%1 stay on the device", "%1 bleiben auf dem Gerät"},
    {Word::kOrdersDone, "Orders done: %1", "Erledigte Aufträge: %1"},
    {Word::kFailed, "The device cannot be read", "Das Gerät kann nicht gelesen werden"},
    {Word::kCrashed, "The import has crashed", "Der Import ist abgestürzt"},
    {Word::kHung, "The import does not answer any more", "Der Import antwortet nicht mehr"},
    {Word::kNonsense, "The import says what makes no sense", "Der Import sagt Unverständliches"},
    {Word::kNotStarted, "The import cannot be started", "Der Import kann nicht gestartet werden"},
    {Word::kStopped, "The import has stopped", "Der Import wurde beendet"},
    {Word::kNothingLost, "What was imported is safe. Try again, and the import goes on there.",
     "Was importiert wurde, ist sicher. Ein neuer Versuch macht dort weiter."},
    {Word::kGone, "The device is gone", "Das Gerät ist nicht mehr da"},
    {Word::kGoneAdvice,
     "It was unplugged, switched off, or does not answer. Connect it again, and the import goes "
     "on.",
     "Es wurde abgezogen oder ausgeschaltet, oder es antwortet nicht. Wird es wieder "
     "angeschlossen, "
     "geht der Import weiter."},
    {Word::kImportOne, "Import 1 Picture", "1 Bild importieren"},
    {Word::kImportMany, "Import %1 Pictures", "%1 Bilder importieren"},
    {Word::kImportOrders, "Import Orders", "Aufträge importieren"},
    {Word::kCancel, "Cancel", "Abbrechen"},
    {Word::kOpenFolder, "Open Folder", "Ordner öffnen"},
    {Word::kRetry, "Try Again", "Erneut versuchen"},
    {Word::kOrdersOne, "Fetch the order, too", "Auch den Auftrag holen"},
    {Word::kOrdersMany, "Fetch the %1 orders, too", "Auch die %1 Aufträge holen"},
    {Word::kDelete, "Delete from Device…", "Vom Gerät löschen …"},
    {Word::kDeleteQuestion, "Delete %1 imported pictures from the device?",
     "%1 importierte Bilder vom Gerät löschen?"},
    {Word::kDeleteDetails,
     "They are safe on this computer. Protected pictures, and those that were not imported just "
     "now, "
     "stay on the device.",
     "Sie liegen sicher auf diesem Rechner. Geschützte Bilder und solche, die nicht eben "
     "importiert "
     "wurden, bleiben auf dem Gerät."},
    {Word::kDeleteYes, "Delete", "Löschen"},
    {Word::kBattery, "Battery %1 %", "Akku %1 %"},
    {Word::kFree, "%1 free on this computer", "%1 frei auf diesem Rechner"},
    {Word::kShowOther, "Another camera is here. Show it", "Eine andere Kamera ist da. Anzeigen"},
    {Word::kShowVolume, "%1 is here. Show it", "%1 ist da. Anzeigen"},
    {Word::kCell, "not new", "nicht neu"},
    {Word::kCellNew, "new", "neu"},
    {Word::kCellChosen, "chosen", "ausgewählt"},
    {Word::kCellFetched, "imported", "importiert"},
    {Word::kCellKnown, "here already", "schon hier"},
    {Word::kCellFailed, "failed", "fehlgeschlagen"},
    {Word::kCellNoRoom, "no room", "kein Platz"},
    {Word::kCellDeleted, "deleted from the device", "vom Gerät gelöscht"},
    {Word::kNotShown,
     "There are more pictures than are shown; what is new of them is imported, too.",
     "Es gibt mehr Bilder als gezeigt werden; was neu ist, wird auch importiert."},
    {Word::kSeconds, "%1 s", "%1 s"},
    {Word::kMinutes, "%1 min", "%1 min"},
    {Word::kHours, "%1 h %2 min", "%1 h %2 min"},
    {Word::kPictures, "Pictures", "Bilder"},
    {Word::kProgressName, "Progress", "Fortschritt"},
    {Word::kUnreadable, "Not readable: %1", "Nicht lesbar: %1"},
    {Word::kNoDevice, "Tarvo Relay", "Tarvo Relay"},
});

// A word is found by its place.
constexpr bool isInOrder() {
  for (std::size_t at = 0; at < kTexts.size(); ++at)
    if (kTexts[at].word != static_cast<Word>(at)) return false;
  return kTexts.size() == static_cast<std::size_t>(Word::kCount);
}
static_assert(isInOrder());

}  // namespace

Language languageOf(const std::function<std::string(const char*)>& variable) {
  std::string locale;
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if (locale.empty()) locale = variable(name);
  // In the plain locale nothing is translated, whatever LANGUAGE says.
  if (locale.empty() || locale == "C" || locale == "POSIX") return Language::kEnglish;
  std::string list = variable("LANGUAGE") + ":" + locale;
  for (std::size_t at = 0; at < list.size(); at = std::min(list.find(':', at), list.size()) + 1) {
    const std::string_view name = std::string_view(list).substr(at, 2);
    if (name == "de") return Language::kGerman;
    if (name == "en") return Language::kEnglish;
  }
  return Language::kEnglish;
}

Language languageOfSession() {
  return languageOf([](const char* name) {
    const char* const value = std::getenv(name);
    return std::string(value != nullptr ? value : "");
  });
}

std::string Texts::operator()(Word word, const std::vector<std::string>& arguments) const {
  const Row& row = kTexts[static_cast<std::size_t>(word)];
  const std::string_view text = language_ == Language::kGerman ? row.german : row.english;
  std::string filled;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t number =
        text[at] == '%' && at + 1 < text.size() ? static_cast<std::size_t>(text[at + 1] - '1') : 9;
    if (number < arguments.size()) {
      filled += arguments[number];
      ++at;
    } else {
      filled += text[at];
    }
  }
  return filled;
}

std::string Texts::counted(std::uint64_t count, Word one, Word many) const {
  return count == 1 ? (*this)(one) : (*this)(many, {number(count)});
}

std::string Texts::number(std::uint64_t number) const {
  std::string text = std::to_string(number);
  if (number < 10'000) return text;
  for (std::size_t at = text.size(); at > 3;)
    text.insert(at -= 3, language_ == Language::kGerman ? "." : ",");
  return text;
}

std::string Texts::size(std::uint64_t bytes) const {
  std::string text = takeText(g_format_size(bytes));
  const auto point = text.find_first_of(".,");
  if (point != std::string::npos) text[point] = language_ == Language::kGerman ? ',' : '.';
  return text;
}

std::string Texts::duration(std::uint64_t seconds) const {
  constexpr std::uint64_t kMinute = 60, kHour = 3600;
  if (seconds < kMinute) return (*this)(Word::kSeconds, {number(seconds)});
  const std::uint64_t minutes = (seconds + kMinute / 2) / kMinute;
  if (seconds < kHour) return (*this)(Word::kMinutes, {number(minutes)});
  return (*this)(Word::kHours, {number(minutes / kMinute), number(minutes % kMinute)});
}

}  // namespace tarvo::relay
