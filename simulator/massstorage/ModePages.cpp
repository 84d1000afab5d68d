#include "simulator/massstorage/ModePages.h"

#include <algorithm>
#include <bit>

#include "Utilities/Format.h"
#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint8_t kUsbModePage = 0x25;
constexpr std::uint8_t kModelPage = 0x26;
constexpr std::uint8_t kClockPage = 0x29;
constexpr std::uint8_t kCapabilitiesPage = 0x2A;
constexpr std::uint8_t kAllPages = 0x3F;
constexpr std::uint8_t kPages[] = {kUsbModePage, kModelPage, kClockPage, kCapabilitiesPage};

constexpr std::size_t kUsbModeSize = 9;  // with code and length
constexpr std::size_t kClockSize = 16;
constexpr std::uint8_t kChangeableValues = 1;

// Bits of the USB mode page's flags.
constexpr std::uint8_t kModes = 0x07;
constexpr std::uint8_t kPermanent = 0x80;

constexpr std::uint64_t kReadSpeed = 4224;  // kB/s, 24 times that of a music CD

Bytes pageOf(std::uint8_t code, std::span<const std::byte> content) {
  Bytes page(2 + content.size());
  page[0] = std::byte{code};
  page[1] = static_cast<std::byte>(content.size());
  std::ranges::copy(content, page.begin() + 2);
  return page;
}

/// A drive with a tray that it can open and lock, and that only reads (MMC-3, 5.5.10).
Bytes capabilitiesPage() {
  Bytes content(18);
  content[4] = std::byte{0x29};  // tray; can eject; can lock
  putBigEndian(content, 6, 2, kReadSpeed);
  putBigEndian(content, 12, 2, kReadSpeed);
  return pageOf(kCapabilitiesPage, content);
}

bool isDateText(std::string_view text) {
  const auto number = [&](std::size_t offset, std::size_t size) {
    return std::stoi(std::string(text.substr(offset, size)));
  };
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  if (!std::all_of(text.begin(), text.end(), isDigit)) return false;
  return number(4, 2) >= 1 && number(4, 2) <= 12 && number(6, 2) >= 1 && number(6, 2) <= 31 &&
         number(8, 2) < 24 && number(10, 2) < 60 && number(12, 2) <= 60;
}

}  // namespace

ModePages::ModePages(const DeviceDescription& description, HostViolations& violations)
    : description_(description.modePages),
      isOptical_(description.scsi.type == kOpticalType),
      violations_(violations) {
  if (!description_.usbMode) return;
  mode_.flags = description_.usbMode->flags;
  mode_.delay = description_.usbMode->delay;
}

std::uint8_t ModePages::capabilities() const {
  const auto& mode = *description_.usbMode;
  return static_cast<std::uint8_t>((mode.autoPowerCycle ? 1 : 0) |
                                   (mode.variableAutoWakeup ? 2 : 0) | (mode.composite ? 4 : 0));
}

Bytes ModePages::usbModePage() const {
  Bytes page(kUsbModeSize);
  page[0] = std::byte{kUsbModePage};
  page[1] = static_cast<std::byte>(kUsbModeSize - 2);
  page[2] = std::byte{mode_.flags};
  page[3] = static_cast<std::byte>(mode_.powerDown);
  putBigEndian(page, 4, 4, mode_.delay);
  page[8] = std::byte{capabilities()};
  return page;
}

Bytes ModePages::page(std::uint8_t code) const {
  if (code == kUsbModePage && description_.usbMode) return usbModePage();
  if (code == kModelPage && description_.model) return pageOf(code, description_.model->text);
  if (code == kClockPage && description_.hasClock) {
    return pageOf(code, std::as_bytes(std::span(clock_)));
  }
  if (code == kCapabilitiesPage && isOptical_) return capabilitiesPage();
  return {};
}

const ModePageLies* ModePages::liesOf(std::uint8_t code) const {
  if (code == kUsbModePage && description_.usbMode) return &description_.usbMode->lies;
  if (code == kModelPage && description_.model) return &description_.model->lies;
  return nullptr;
}

std::optional<Bytes> ModePages::sense(std::uint8_t code, std::uint8_t control,
                                      std::size_t headerSize, const Faults& faults) const {
  Bytes answer(headerSize);
  for (const auto each : kPages) {
    if (code != each && code != kAllPages) continue;
    auto content = page(each);
    if (content.empty()) continue;
    // Nothing says which bits a host may change, so none is told.
    if (control == kChangeableValues) std::fill(content.begin() + 2, content.end(), std::byte{});
    answer.insert(answer.end(), content.begin(), content.end());
  }
  if (answer.size() == headerSize && code != kAllPages) return std::nullopt;
  // The length of all that follows it: a byte in the short header, two in the long one.
  const std::size_t lengthSize = headerSize == 4 ? 1 : 2;
  const auto* lies = liesOf(code);
  if (lies != nullptr && lies->size) answer.resize(std::min(*lies->size, answer.size()));
  std::uint64_t length = answer.size() - std::min(lengthSize, answer.size());
  if (lies != nullptr && lies->modeDataLength) length = *lies->modeDataLength;
  length = faults.amount(Fault::kModeLength).value_or(static_cast<std::uint32_t>(length));
  if (answer.size() >= lengthSize) putBigEndian(answer, 0, lengthSize, length);
  std::optional<std::uint32_t> claimed = faults.amount(Fault::kPageLength);
  if (!claimed && lies != nullptr && lies->pageLength) claimed = *lies->pageLength;
  if (claimed && answer.size() > headerSize + 1) putBigEndian(answer, headerSize + 1, 1, *claimed);
  return answer;
}

// Selecting.

Sense ModePages::refuse(const std::string& complaint) {
  violations_.add("mode select: " + complaint);
  return sense::kInvalidFieldInParameters;
}

std::optional<Sense> ModePages::select(std::span<const std::byte> list, std::size_t headerSize) {
  if (list.empty()) return std::nullopt;
  if (list.size() < headerSize + 2) return sense::kParameterListLength;
  const auto header = list.first(headerSize);
  if (std::any_of(header.begin(), header.end(), [](auto each) { return each != std::byte{}; })) {
    violations_.add("mode select: the header is not all zero");
  }
  const auto page = list.subspan(headerSize);
  if (byteAt(page, 1) != page.size() - 2) {
    return refuse(
        formatted("the page claims %u bytes and has %zu", byteAt(page, 1), page.size() - 2));
  }
  const auto code = byteAt(page, 0);
  if (code == kUsbModePage && description_.usbMode) return selectUsbMode(page);
  if (code == kClockPage && description_.hasClock) return selectClock(page);
  return refuse(formatted("there is no page 0x%02X to select", code));
}

std::optional<Sense> ModePages::selectUsbMode(std::span<const std::byte> page) {
  if (page.size() != kUsbModeSize) return refuse("the USB mode page has 7 bytes");
  const auto flags = byteAt(page, 2);
  const auto delay = static_cast<std::uint32_t>(bigEndian(page, 4, 4));
  // Devices pass over these; hosts should not send them.
  if ((flags & ~(kModes | kPermanent)) != 0) violations_.add("mode select: unknown mode flags");
  if (std::popcount(static_cast<unsigned>(flags & kModes)) > 1) {
    violations_.add("mode select: more than one mode");
  }
  if (byteAt(page, 3) > 1) violations_.add("mode select: power down is neither 0 nor 1");
  if (byteAt(page, 3) == 0 && delay != 0) {
    violations_.add("mode select: a wake-up delay without power down");
  }
  if (byteAt(page, 8) != 0 && byteAt(page, 8) != capabilities()) {
    violations_.add("mode select: capabilities that are not the device's");
  }
  mode_ = {flags, byteAt(page, 3) != 0, delay, true};
  return std::nullopt;
}

std::optional<Sense> ModePages::selectClock(std::span<const std::byte> page) {
  if (page.size() != kClockSize) return refuse("the clock page has 14 bytes");
  const std::string text(reinterpret_cast<const char*>(page.data()) + 2, kClockSize - 2);
  if (!isDateText(text)) return refuse("the clock page has no date and time");
  clock_ = text;
  return std::nullopt;
}

}  // namespace tarvo::simulator
