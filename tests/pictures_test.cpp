// Pictures made smaller: how large they become, what they show, and where a tap on them lands.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "compat/result.hpp"
#include "pictures/fit.hpp"
#include "pictures/jpeg.hpp"
#include "pictures/png.hpp"
#include "platform/base64.hpp"
#include "simulator/commands.hpp"
#include "simulator/drawing.hpp"
#include "support/json.hpp"

namespace quillmere {
namespace {

using Colour = std::array<unsigned char, 3>;

constexpr std::size_t fullLine = 1'000'000;

/// A picture, of one colour or of noise, which no PNG makes shorter.
Pixels drawn(PictureSize size, bool isNoise = false) {
  Pixels pixels{.size = size, .bytes = {}};
  std::uint32_t state = 1;
  for (std::size_t i = 0; i < size.rowBytes() * size.height; ++i) {
    state = state * 1'664'525 + 1'013'904'223;
    pixels.bytes.push(isNoise ? static_cast<unsigned char>(state >> 24U) : 0);
  }
  return pixels;
}

std::string pngOf(const Pixels& pixels) {
  std::string file(pixels.size.rowBytes() * pixels.size.height * 2 + 1'000, '\0');
  FileRoom room{.start = reinterpret_cast<unsigned char*>(file.data()), .bytes = file.size()};
  EXPECT_TRUE(writePng(pixels, room));
  return base64(file.substr(0, room.used));
}

/// What a picture of one of ours shows.
Pixels pixelsOf(const FittedPicture& picture) {
  AreaAverage copy(picture.size, {});
  const auto read = picture.mimeType == "image/png" ? readPng : readJpeg;
  EXPECT_TRUE(read(picture.base64, copy));
  Pixels pixels{.size = picture.size, .bytes = {}};
  for (unsigned y = 0; y < picture.size.height; ++y) {
    for (std::size_t i = 0; i < picture.size.rowBytes(); ++i) {
      pixels.bytes.push(copy.result().row(y)[i]);
    }
  }
  return pixels;
}

Colour colourAt(const Pixels& pixels, unsigned x, unsigned y) {
  const unsigned char* const pixel = pixels.row(y) + std::size_t{x} * PictureSize::channels;
  return {pixel[0], pixel[1], pixel[2]};
}

std::string described(const std::optional<FittedPicture>& fitted) {
  if (!fitted) return "as it is";
  return std::to_string(fitted->size.width) + " x " + std::to_string(fitted->size.height) + " " +
         std::string(fitted->mimeType.substr(6)) + ", times " + std::string(fitted->multiplier);
}

TEST(Fitting, TakesTheLargestOfTheEasyScales) {
  struct Case {
    PictureSize size;
    bool isNoise;
    std::size_t characters;
    std::string_view fitted;
  };
  const Case cases[] = {
      {{1'080, 2'400}, false, fullLine, "540 x 1200 png, times 2"},
      {{1'080, 1'920}, false, fullLine, "864 x 1536 png, times 1.25"},
      {{3'200, 1'440}, false, fullLine, "1280 x 576 png, times 2.5"},
      {{1'081, 2'401}, false, fullLine, "541 x 1201 png, times 2"},
      {{1'568, 1'568}, false, fullLine, "as it is"},
      {{1'569, 1}, false, fullLine, "1256 x 1 png, times 1.25"},
      {{1, 156'800}, false, fullLine, "1 x 1568 png, times 100"},
      {{156'801, 1}, false, fullLine, "as it is"},
      {{500, 400}, true, fullLine, "as it is"},
      {{600, 500}, true, fullLine, "600 x 500 jpeg, times 1"},
      {{600, 500}, true, 50'000, "300 x 250 jpeg, times 2"},
  };
  for (const auto& [size, isNoise, characters, wanted] : cases) {
    const auto fitted = fitPicture(pngOf(drawn(size, isNoise)), "image/png", characters);
    EXPECT_EQ(wanted, described(fitted)) << size.width << " x " << size.height;
    EXPECT_GE(characters, fitted ? fitted->base64.size() : 0);
  }
}

TEST(Fitting, ReadsEveryFormAndLeavesTheRestAlone) {
  constexpr std::pair<std::string_view, std::string_view> cases[] = {
      {"rgb.png", "1280 x 4 png, times 1.25"},
      {"rgba16_interlaced.png", "1280 x 4 png, times 1.25"},
      {"palette2_transparent.png", "1280 x 4 png, times 1.25"},
      {"grey1.png", "1280 x 4 png, times 1.25"},
      {"rgb.jpg", "1280 x 4 jpeg, times 1.25"},
      {"grey_progressive.jpg", "1280 x 4 jpeg, times 1.25"},
      {"cut_off.png", "as it is"},
      {"damaged.png", "as it is"},
      {"declares_64_megapixels.png", "as it is"},
      {"cut_off.jpg", "as it is"},
      {"cmyk.jpg", "as it is"},
      {"turned.jpg", "as it is"},
  };
  for (const auto& [name, wanted] : cases) {
    SCOPED_TRACE(name);
    std::ifstream file(QUILLMERE_PICTURES + std::string(name), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    ASSERT_FALSE(bytes.empty());
    const auto fitted =
        fitPicture(base64(bytes), name.ends_with(".png") ? "image/png" : "image/jpeg", fullLine);
    ASSERT_EQ(wanted, described(fitted));
    if (!fitted) continue;
    // All of them are white or transparent on the left, and on the right blue or black.
    const Pixels pixels = pixelsOf(*fitted);
    for (const unsigned y : {0U, 3U}) {
      EXPECT_LT(240, std::ranges::min(colourAt(pixels, 639, y)));
      EXPECT_GT(15, colourAt(pixels, 640, y)[0] + colourAt(pixels, 1'279, y)[1]);
      EXPECT_EQ(!name.starts_with("grey"), colourAt(pixels, 1'279, y)[2] > 240);
    }
  }
}

TEST(AreaAverage, WeighsEachPixelByItsArea) {
  struct Case {
    Scale scale;
    std::vector<unsigned char> row, averaged;
  };
  const Case cases[] = {
      {{1, 2}, {10, 20, 40}, {15, 40}},
      {{4, 5}, {0, 100, 200, 50, 250}, {20, 140, 110, 210}},
      {{2, 5}, {100, 200, 0, 50, 250, 60, 80}, {120, 120, 70}},
  };
  for (const auto& [scale, row, averaged] : cases) {
    // The same across, down, and in each colour.
    const auto length = static_cast<unsigned>(row.size());
    for (const PictureSize size : {PictureSize{length, 1}, PictureSize{1, length}}) {
      std::vector<unsigned char> bytes;
      for (const unsigned char value : row) bytes.insert(bytes.end(), 3, value);
      AreaAverage average(size, scale);
      for (unsigned y = 0; y < size.height; ++y) average.addRow(&bytes[y * size.rowBytes()]);
      std::vector<unsigned char> wanted;
      for (const unsigned char value : averaged) wanted.insert(wanted.end(), 3, value);
      const unsigned char* const start = average.result().row(0);
      EXPECT_EQ(wanted, std::vector(start, start + average.result().bytes.size()));
    }
  }
}

TEST(FittedPictures, ShareTheLineAndSayWhatToMultiplyBy) {
  const std::string small = pngOf(drawn({4, 4}));
  const std::string noise = pngOf(drawn({900, 900}, true));
  const std::string screen = pngOf(drawn({1'080, 2'400}));
  const std::string webp = "UklGRiQAAABXRUJQ";
  const std::string line =
      compatResult(json(R"({"a":[")" + noise + R"(",")" + small + R"(",")" + noise + R"("],"b":")" +
                        screen + R"(","c":")" + webp + R"("})"))
          .str();
  EXPECT_GT(fullLine, line.size());
  EXPECT_LT(fullLine / 4, line.size());
  for (const std::string& untouched : {small, webp}) {
    EXPECT_NE(std::string::npos, line.find('"' + untouched + '"'));
  }
  EXPECT_NE(std::string::npos,
            line.find(R"(\"b\":\"picture: item 5 of this content, 540 x 1200 pixels, made smaller )"
                      R"(from 1080 x 2400: multiply x and y read off it by 2 before you tap or )"
                      R"(swipe there\",\"c\":\"picture: item 6 of this content\"})"));
}

TEST(FittedPictures, ShowTheSimulatedPhoneWhereATapHits) {
  using namespace simulator;
  World world = makeWorld(2);
  const auto ask = [&](const std::string& request) {
    const auto document = parseJson(request);
    Call call{.request = document->object()};
    return takeTurn(world, call, WorldTime(0)).answer.value().str();
  };
  const std::string device = R"({"deviceSerial":"QM7F3A2101","command":)";
  ask(device + R"("startSession"})");
  const auto fitted = fitPicture(base64(pngOf(viewOf(world.devices[0].phone, WorldTime(0)))),
                                 "image/png", fullLine);
  ASSERT_EQ("540 x 1200 png, times 2", described(fitted));

  // The last pixel in the colour of buttons belongs to the last button.
  const Pixels pixels = pixelsOf(*fitted);
  const Colour button = {33, 94, 184};
  std::string place;
  for (unsigned y = 0; y < fitted->size.height; ++y) {
    for (unsigned x = 0; x < fitted->size.width; ++x) {
      if (colourAt(pixels, x, y) != button) continue;
      place = R"("x":)" + std::to_string(2 * x) + R"(,"y":)" + std::to_string(2 * y);
    }
  }
  const std::string answer = ask(device + R"("tap",)" + place + "}");
  EXPECT_NE(std::string::npos, answer.find("Launched Settings.")) << place << answer;
}

}  // namespace
}  // namespace quillmere
