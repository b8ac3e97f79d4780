#include "bench/payloads.hpp"

#include <cstdint>
#include <string_view>

namespace quillmere::bench {

std::string smallPayload() {
  return R"({"ok":true,"action":{"message":"Tapped at 120, 340.","foregroundVerified":true},)"
         R"("visibleState":{"uiTopPackageName":"com.example.notes","width":1080,"height":2400},)"
         R"("warnings":[],"nextRecommendedTool":{"name":"quillmere.ui.get_state"},)"
         R"("auditId":"a-000123"})";
}

std::string imagePayload(std::size_t bytes) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr std::string_view end = "\"}}";
  std::string payload = R"({"ok":true,"image":{"mimeType":"image/png","data":")";
  payload.reserve(bytes);
  for (std::uint32_t state = 1; payload.size() + end.size() < bytes;) {
    state = state * 1'664'525 + 1'013'904'223;
    payload += digits[state >> 26U];
  }
  return payload.append(end);
}

std::string uiPayload(std::size_t nodes) {
  std::string payload = R"({"ok":true,"uiState":{"elementCount":)";
  payload.append(std::to_string(nodes)).append(R"(,"truncated":false,"nodes":[)");
  for (std::size_t i = 0; i < nodes; ++i) {
    const std::string number = std::to_string(i);
    payload.append(i == 0 ? "" : ",").append(R"({"nodeId":"n)").append(number);
    payload.append(R"(","className":"android.widget.TextView","text":"Line )").append(number);
    payload.append(R"( – ok","bounds":{"x":24,"y":)").append(number);
    payload.append(R"(,"width":1032.5,"height":96},"clickable":true,"parent":null})");
  }
  return payload + "]}}";
}

}  // namespace quillmere::bench
