#include "bench/payloads.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <stdexcept>

#include "pictures/png.hpp"
#include "platform/base64.hpp"

namespace quillmere::bench {

namespace {

/// A long article: paragraphs of about a kilobyte.
std::string articlePayload(std::size_t bytes) {
  const std::string text =
      filled("", "今天下午三点在会议室讨论新的计划，请大家提前准备好材料。", "", 1'024);
  return filled(R"({"ok":true,"page":{"paragraphs":[)", '"' + text + "\",", R"("完"]}})", bytes);
}

std::string numbersPayload(std::size_t bytes) {
  return filled(R"({"ok":true,"samples":[)", "7,", "7]}", bytes);
}

struct Kind {
  std::string_view name;
  std::string (*make)(std::size_t size);
};

const Kind kinds[] = {
    {"small", [](std::size_t) { return smallPayload(); }},
    {"image", [](std::size_t size) { return imagePayload(size); }},
    {"escaped", [](std::size_t size) { return imagePayload(size, R"(\/)"); }},
    {"photo", [](std::size_t) { return photoPayload(); }},
    {"article", articlePayload},
    {"nodes", uiPayload},
    {"numbers", numbersPayload},
};

}  // namespace

std::string filled(std::string_view head, std::string_view piece, std::string_view tail,
                   std::size_t bytes) {
  std::string text(head);
  text.reserve(bytes);
  while (text.size() + piece.size() + tail.size() <= bytes) text += piece;
  return text.append(tail);
}

std::string smallPayload() {
  return R"({"ok":true,"action":{"message":"Tapped at 120, 340.","foregroundVerified":true},)"
         R"("visibleState":{"uiTopPackageName":"com.example.notes","width":1080,"height":2400},)"
         R"("warnings":[],"nextRecommendedTool":{"name":"quillmere.ui.get_state"},)"
         R"("auditId":"a-000123"})";
}

std::string imagePayload(std::size_t bytes, std::string_view slash) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr std::string_view end = "\"}}";
  // The start of every PNG.
  std::string payload = R"({"ok":true,"image":{"mimeType":"image/png","data":"iVBORw0KGgoAAAAN)";
  payload.reserve(bytes);
  for (std::uint32_t state = 1; payload.size() + 4 * slash.size() + end.size() <= bytes;) {
    for (int i = 0; i < 4; ++i) {
      state = state * 1'664'525 + 1'013'904'223;
      const char digit = digits[state >> 26U];
      payload.append(digit == '/' ? slash : std::string_view(&digit, 1));
    }
  }
  return payload.append(end);
}

std::string photoPayload() {
  // Soft shapes, and the noise that every camera adds.
  Pixels pixels{.size = {1'080, 2'400}, .bytes = {}};
  std::uint32_t state = 1;
  for (unsigned y = 0; y < pixels.size.height; ++y) {
    for (unsigned x = 0; x < pixels.size.width; ++x) {
      for (unsigned channel = 0; channel < PictureSize::channels; ++channel) {
        state = state * 1'664'525 + 1'013'904'223;
        const double shape = 110 + 70 * std::sin(x / (90.0 + 20 * channel) + y / 210.0) +
                             40 * std::cos(y / 37.0 - x / 150.0);
        pixels.bytes.push(static_cast<unsigned char>(shape + (state >> 24U) % 16));
      }
    }
  }
  Bytes file;
  constexpr std::size_t most = 8 << 20;
  FileRoom room{.start = reinterpret_cast<unsigned char*>(file.room(most)), .bytes = most};
  if (!writePng(pixels, room)) throw std::runtime_error("The photo can't be made.");
  return R"({"ok":true,"image":{"mimeType":"image/png","data":")" +
         base64({file.data(), room.used}) + "\"}}";
}

std::string uiPayload(std::size_t nodes) {
  constexpr std::string_view texts[] = {"明天下午三点开会", "买牛奶和鸡蛋", "给妈妈打电话",
                                        "本周工作总结", "设置"};
  std::string payload = R"({"ok":true,"uiState":{"packageName":"com.notes","elementCount":)";
  payload.append(std::to_string(nodes)).append(R"(,"truncated":false,"nodes":[)");
  for (std::size_t i = 1; i <= nodes; ++i) {
    const std::string number = std::to_string(i);
    payload.append(i == 1 ? "" : ",").append(R"({"nodeId":)").append(number);
    payload.append(R"(,"parentId":)").append(std::to_string(i / 8));
    payload.append(R"(,"className":"Text","packageName":"com.notes","resourceId":"r)");
    payload.append(number).append(R"(","text":")").append(texts[i % std::size(texts)]);
    payload.append(R"(","contentDescription":"备忘)").append(number);
    payload.append(R"(","bounds":{"x":24,"y":)").append(number);
    payload.append(R"(,"width":1032.5,"height":96},"clickable":true,"enabled":true,)");
    payload.append(R"("focused":false,"editable":false,"checked":null})");
  }
  return payload + "]}}";
}

std::string payloadCalled(std::string_view name) {
  const std::size_t blank = name.find(' ');
  std::size_t size = 0;
  if (blank != std::string_view::npos) {
    std::from_chars(name.data() + blank + 1, name.data() + name.size(), size);
  }
  for (const Kind& kind : kinds) {
    if (kind.name == name.substr(0, blank)) return kind.make(size);
  }
  return {};
}

}  // namespace quillmere::bench
