#include "relay/ImportModel.h"

#include <gmock/gmock.h>

#include <string>

#include "relay/Thumbnails.h"

namespace tarvo::relay {
namespace {

using Json = PropertyDictionary;

/// As it comes over the pipe.
Json told(const Json& json) {
  return Json::parse(json.dump());
}

Json object(std::uint64_t id, bool isNew, std::uint64_t size = 10) {
  return {{"event", "object"}, {"id", id}, {"name", "A.JPG"}, {"size", size}, {"new", isNew}};
}

TEST(RelayModel, CountsWhatIsNewChosenAndSafe) {
  ImportModel model;
  for (std::uint64_t id = 0; id < 4; ++id)
    model.take(object(id, id != 3, id + 1));
  EXPECT_EQ(model.sums().news, 3U);
  EXPECT_EQ(model.sums().chosenBytes, 6U);
  EXPECT_EQ(model.choice(), Json({{"command", "choose"}, {"what", "new"}}));
  EXPECT_FALSE(model.choose(3, true)) << "what is known is never fetched";
  EXPECT_TRUE(model.choose(1, false));
  EXPECT_EQ(model.choice(), Json({{"command", "choose"}, {"ids", {0, 2}}}));
  // Told again, with the novelty that is known by now: a choice stays.
  model.take(object(0, false));
  model.take(object(1, true, 7));
  model.take(object(3, true, 100));
  EXPECT_EQ(model.size(), 4U);
  EXPECT_EQ(model.choice(), Json({{"command", "choose"}, {"ids", {2, 3}}}));
  EXPECT_EQ(model.sums().chosenBytes, 103U);
  model.setState(2, Picture::State::kSafe);
  model.setState(3, Picture::State::kFailed);
  EXPECT_EQ(model.sums().safe, 1U);
  EXPECT_EQ(model.sums().chosen, 0U);
  EXPECT_EQ(model.sums().news, 2U);
  EXPECT_THAT(model.safeIds(), testing::ElementsAre(2U));
}

TEST(RelayModel, BelievesNoObjectWithoutMeasure) {
  ImportModel model;
  for (const char* const text : {R"({})", R"({"id": -1})", R"({"id": "1"})", R"({"id": 1.5})"})
    EXPECT_FALSE(model.take(Json::parse(text))) << text;
  // A name of many bytes, cut before the character that does not fit.
  const Json hostile = {{"id", 1},
                        {"name", "\x1b[2J" + std::string(252, 'x') + "\u00e4"},
                        {"size", "big"},
                        {"new", 1}};
  ASSERT_EQ(model.take(told(hostile)), 0U);
  EXPECT_LE(model.at(0).name.size(), ImportModel::kLongestName);
  EXPECT_EQ(model.at(0).name.find('\x1b'), std::string::npos);
  EXPECT_EQ(model.at(0).size, 0U);
  EXPECT_FALSE(model.at(0).isNew);
}

TEST(RelayModel, ImportsWhatItDoesNotShowWithAllThatIsNew) {
  ImportModel model;
  for (std::uint64_t id = 0; id <= ImportModel::kMost; ++id)
    model.take(object(id, true));
  EXPECT_EQ(model.size(), ImportModel::kMost);
  EXPECT_TRUE(model.isCut());
  model.choose(5, false);
  EXPECT_EQ(model.choice(), Json({{"command", "choose"}, {"what", "new"}, {"except", {5}}}));
}

std::string base64(std::size_t bytes, char value = 'x') {
  gchar* const text =
      g_base64_encode(reinterpret_cast<const guchar*>(std::string(bytes, value).data()), bytes);
  std::string result = text;
  g_free(text);
  return result;
}

TEST(RelayThumbnails, AreOfTheSizeThatTheySayOrNone) {
  struct Case {
    Json json;
    int width, height;
  };
  const Case cases[] = {
      {{{"width", 2}, {"height", 1}, {"pixels", base64(6)}}, 2, 1},
      {{{"width", 256}, {"height", 192}, {"pixels", base64(147'456)}}, 160, 120},
      {{{"width", 192}, {"height", 256}, {"pixels", base64(147'456)}}, 90, 120},
      {{{"width", 1}, {"height", 256}, {"pixels", base64(768)}}, 1, 120},
      {{{"width", 2}, {"height", 1}, {"pixels", base64(7)}}, 0, 0},
      {{{"width", 2}, {"height", 1}, {"pixels", base64(3)}}, 0, 0},
      {{{"width", 2}, {"height", 1}, {"pixels", "????????"}}, 0, 0},
      {{{"width", 2}, {"height", 1}}, 0, 0},
      {{{"width", 0}, {"height", 1}, {"pixels", ""}}, 0, 0},
      {{{"width", 30000}, {"height", 30000}, {"pixels", base64(6)}}, 0, 0},
      {{{"width", -1}, {"height", "1"}, {"pixels", 3}}, 0, 0},
      {{{"id", 1}, {"why", "it has none"}}, 0, 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.json.dump().substr(0, 80));
    const auto thumbnail = thumbnailFrom(told(each.json));
    ASSERT_EQ(thumbnail.has_value(), each.width > 0);
    if (!thumbnail) continue;
    EXPECT_EQ(thumbnail->width, each.width);
    EXPECT_EQ(thumbnail->height, each.height);
    gsize size = 0;
    const auto* const pixels =
        static_cast<const char*>(g_bytes_get_data(thumbnail->pixels.get(), &size));
    EXPECT_EQ(std::string(pixels, size),
              std::string(static_cast<std::size_t>(each.width * each.height) * 3, 'x'));
  }
}

TEST(RelayThumbnails, AreAskedForInOrderOnceAndAFewAtATime) {
  Thumbnails thumbnails;
  std::vector<std::uint64_t> ids(700);
  for (std::size_t at = 0; at < ids.size(); ++at)
    ids[at] = at;
  const auto answer = [&](std::uint64_t id, bool isThere) {
    Json json = {{"id", id}, {"width", 1}, {"height", 1}};
    if (isThere) json["pixels"] = base64(3);
    return thumbnails.take(told(json));
  };
  thumbnails.wish(ids);
  EXPECT_EQ(thumbnails.next(), std::vector<std::uint64_t>(ids.begin(), ids.begin() + 12));
  EXPECT_TRUE(thumbnails.next().empty());
  EXPECT_EQ(answer(0, true), 0U);
  EXPECT_EQ(answer(1, false), std::nullopt);
  EXPECT_EQ(answer(500, true), std::nullopt) << "nobody has asked for it";
  thumbnails.wish({1, 0, 5, 99});
  EXPECT_EQ(thumbnails.next(), std::vector<std::uint64_t>{99});
  // A cancelled import forgets them: they are asked for again.
  thumbnails.expectNone();
  EXPECT_EQ(thumbnails.next(), (std::vector<std::uint64_t>{5, 99}));
  for (thumbnails.wish(ids); thumbnails.isWaiting(); thumbnails.next())
    for (const std::uint64_t id : ids)
      answer(id, true);
  EXPECT_EQ(thumbnails.find(2), nullptr);
  EXPECT_NE(thumbnails.find(699), nullptr);
}

}  // namespace
}  // namespace tarvo::relay
