// The bytes of objects, to a PTP device and from it, and the queries that travel as objects.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/ScriptedPTPDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

constexpr std::uint32_t kMiB = 1U << 20;

std::vector<std::uint8_t> patternOf(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(i * 7);
  return bytes;
}

// --- downloads

TEST(PTPDownloads, GoIntoTheSinkUpToTheSizeThatTheObjectHas) {
  const std::tuple<std::uint32_t, std::size_t, std::size_t> rows[] = {
      {0, 9, 0}, {5000, 3000, 3000}, {5000, 7000, 5000}, {0xFFFFFFFF, 7000, 7000}};
  for (const auto& [size, onDevice, taken] : rows) {
    ScriptedPTPDevice scripted;
    scripted.camera.answers[0x1009] = {.data = patternOf(onDevice)};
    std::vector<std::byte> memory(10000);
    ptp::MemorySink sink(memory);
    std::uint64_t received = 99;
    EXPECT_EQ(scripted->downloadEntireObject(7, size, sink, received), 0);
    EXPECT_EQ(received, taken);
    EXPECT_EQ(sink.filled(), taken);
    EXPECT_EQ(scripted.sent().size(), size == 0 ? 0U : 1U);
  }
}

TEST(PTPDownloads, OfPartsAskTheCallbackBeforeAndTellItAfterwards) {
  ScriptedPTPDevice scripted;
  std::vector<std::uint32_t> told;
  bool cancels = false;
  scripted->setDownloadUpdateCb([&](std::uint32_t bytes) {
    told.push_back(bytes);
    return cancels;
  });
  std::vector<std::byte> memory(3000);
  ptp::MemorySink sink(memory);
  std::uint64_t received = 0;
  const auto download = [&](const PTPAnswer& answer) {
    scripted.camera.answers[0x101B] = answer;
    return scripted->downloadPartialObject(7, 100, 3000, sink, received);
  };
  EXPECT_EQ(download({.data = patternOf(3000)}), 0);
  EXPECT_EQ(received, 3000U);
  EXPECT_EQ(download({.responseCode = 0x2007}), 0x2007);
  EXPECT_THAT(told, testing::ElementsAre(0, 3000, 0));
  cancels = true;
  EXPECT_EQ(download({.data = patternOf(3000)}), -490);
  EXPECT_THAT(scripted.sent(),
              testing::ElementsAre("101b(7,64,bb8)0<3000", "101b(7,64,bb8)0<3000"));
}

TEST(PTPThumbnails, AreAsLongAsTheObjectSaysWhateverComes) {
  const std::tuple<std::uint32_t, PTPAnswer, std::optional<std::size_t>> rows[] = {
      {0, {}, std::nullopt},
      {100, {.data = patternOf(40)}, 100},
      {100, {.data = patternOf(140)}, 100},
      {2 * kMiB, {.data = patternOf(140)}, 140},  // more than is made up
      {0xFFFFFFFF, {}, std::nullopt},             // no thumbnail is that large
      {100, {.responseCode = 0x2010}, std::nullopt},
      {100, {.responseCode = 0x2009}, std::nullopt},
  };
  for (const auto& [announced, answer, size] : rows) {
    ScriptedPTPDevice scripted;
    XTExtendedObjectInfo info;
    info.setThumbCompressedSize(announced);
    scripted->cacheObject(7, std::make_shared<XTExtendedObjectInfo>(info));
    scripted.camera.answers[0x100A] = answer;
    const auto thumb = scripted->downloadThumb(7);
    EXPECT_EQ(thumb ? std::optional(thumb->size()) : std::nullopt, size);
    EXPECT_EQ(scripted.sent().empty(), announced == 0 || announced == 0xFFFFFFFF);
    EXPECT_EQ(scripted.room.trace.count("downloadThumb GetObject objectSendMessagePB.header.err"),
              answer.responseCode == 0x2009 ? 1U : 0U);
  }
}

// --- sending

struct Sending : ScriptedPTPDevice {
  explicit Sending(std::size_t size, PTPCameraDescription description = fullCamera())
      : ScriptedPTPDevice(description), bytes(patternOf(size)) {
    camera.answers[0x100C] = {.parameters = {0x10001, 5, 42}};
    camera.answers[0x100D] = camera.answers[0x9019] = {};
    info.setObjFmtCode(0x3801);
    info.setCompressedSize(static_cast<std::uint32_t>(size));
    path = folder.write("A.JPG", std::string(bytes.begin(), bytes.end()));
  }
  Status send() { return device->sendContentsOfFile(path, info, 1, 2, &handle); }

  TemporaryFolder folder;
  std::vector<std::uint8_t> bytes;
  std::string path;
  XTExtendedObjectInfo info;
  std::uint32_t handle = 0;
};

TEST(PTPSending, GoesInPartsWhereTheDeviceTakesThemAndTheFileIsLarger) {
  const std::tuple<std::uint32_t, bool, std::uint16_t, std::vector<std::string>> rows[] = {
      {0, true, 0x3801, {"100d()3>0"}},
      {52, true, 0x3801, {"100d()3>53"}},
      {2 * kMiB, true, 0x3801, {"100d()3>2097152"}},
      {2 * kMiB + 1, false, 0x3801, {"100d()3>2097153"}},
      {2 * kMiB + 1, true, ptp::XTD_QUERY, {"100d()3>2097153"}},
      {2 * kMiB + 52, true, 0x3801, {"9019(200000,0)0>2097152", "9019(34,1)0>53"}},
      {4 * kMiB, true, 0x3801, {"9019(200000,0)0>2097152", "9019(200000,1)0>2097152"}},
  };
  for (const auto& [size, takesParts, format, expected] : rows) {
    auto description = fullCamera();
    if (!takesParts) std::erase(description.operations, 0x9019);
    Sending sending(size, description);
    sending.info.setObjFmtCode(format);
    EXPECT_EQ(sending.send(), 0);
    auto sent = sending.sent();
    sent.erase(sent.begin());  // the announcement
    EXPECT_EQ(sent, expected);
    EXPECT_EQ(sending.handle, 42U);
    std::vector<std::uint8_t> arrived;
    for (const auto& payload : std::span(sending.camera.payloads).subspan(1))
      arrived.insert(arrived.end(), payload.begin(), payload.end());
    sending.bytes.resize(arrived.size());
    EXPECT_TRUE(arrived == sending.bytes) << size;
  }
  // A whole container is announced with its padding.
  Sending padded(116);
  EXPECT_EQ(padded->sendObjectInfo(padded.info, 1, 2, &padded.handle), 0);
  EXPECT_EQ(padded->sendObjectData(std::as_bytes(std::span(padded.bytes))), 0);
  EXPECT_EQ(padded.info.compressedSize(), 117U);
  EXPECT_EQ(padded.camera.payloads[1].size(), 117U);
  EXPECT_TRUE(padded.room.trace.contains("sendObjectData received data size: 117"));
}

TEST(PTPSending, InPartsAsksTheCallbackBetweenThem) {
  const std::vector<std::uint32_t> parts = {0, 2 * kMiB, 2 * kMiB, kMiB};
  // The how many-th call cancels, and what was sent until then.
  for (const auto& [cancelsAt, sent] : {std::pair(0, 4), {1, 0}, {2, 2}, {4, 4}}) {
    Sending sending(std::size_t{5} * kMiB);
    std::vector<std::uint32_t> told;
    sending->setDownloadUpdateCb([&told, last = cancelsAt](std::uint32_t bytes) {
      told.push_back(bytes);
      return std::ssize(told) == last;
    });
    EXPECT_EQ(sending.send(), cancelsAt == 0 ? 0 : -490);
    EXPECT_EQ(told, std::vector(parts.begin(), parts.begin() + (cancelsAt == 0 ? 4 : cancelsAt)));
    EXPECT_EQ(std::ssize(sending.camera.operations), sent);
    EXPECT_EQ(sending.handle, cancelsAt == 0 ? 42U : 0U);
  }
}

TEST(PTPSending, SaysWhyAFileCannotBeSent) {
  for (const std::uint32_t size : {100U, 3 * kMiB}) {
    Sending missing(size);
    missing.path += ".gone";
    EXPECT_EQ(missing.send(), -43);
    EXPECT_EQ(missing.handle, 0U);
  }
  Sending huge(100);
  std::filesystem::resize_file(huge.path, std::uintmax_t{1} << 32);
  EXPECT_EQ(huge.send(), -50);
  EXPECT_TRUE(huge.sent().empty());
}

// --- queries

TEST(PTPQueries, AreTextsAndGiveTheirRowsUntilThereAreNoMore) {
  ScriptedPTPDevice scripted;
  std::uint32_t handle = 0;
  EXPECT_EQ(scripted->sendQuery("SELECT '\xC3'", &handle), -43);
  EXPECT_TRUE(scripted.room.trace.contains("Failed to extract query from NSString."));
  ByteBuffer rows(3);
  bool ends = true;
  for (const std::uint32_t end : {0U, 1U}) {
    scripted.camera.answers[0x901A] = {.data = patternOf(20), .parameters = {20, end}};
    EXPECT_EQ(scripted->getDBRowsFromQuery(42, 1, 64, rows, ends), 0);
    EXPECT_EQ(ends, end == 1);
  }
  EXPECT_EQ(rows.size(), 43U) << "appended";
  scripted.camera.answers[0x901A].responseCode = 0x2002;
  EXPECT_EQ(scripted->getDBRowsFromQuery(42, 1, 64, rows, ends), 0x2002);
  EXPECT_EQ(rows.size(), 43U) << "never rows that may be cut";
  EXPECT_EQ(scripted->endQuery(42, 1), 0x2002);
  EXPECT_EQ(scripted.sent()[0], "901a(2a,1,0,40)2<64");
  EXPECT_EQ(scripted.sent()[3], "901a(2a,1,1,40)2<64");
}

}  // namespace
}  // namespace tarvo::test
