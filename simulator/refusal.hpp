// Why the simulated app does not carry out a request.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "json/writer.hpp"
#include "simulator/world_data.hpp"

namespace quillmere::simulator {

/// Becomes a response with `ok` false and an `error` of this code and message.
class Refusal : public std::runtime_error {
 public:
  Refusal(std::string_view errorCode, const std::string& message)
      : std::runtime_error(message), code(errorCode) {}

  /// Constant text.
  std::string_view code;
  /// Members of the response besides `error`.
  JsonText besides = JsonText::object();
};

/// Refusals that several commands use, or that carry more than a message. Pure.
namespace refusals {
[[nodiscard]] Refusal invalidArgument(std::string_view key, std::string_view must);
/// Recommends the tool that starts a session, for the device with this serial if there is one.
[[nodiscard]] Refusal noSession(std::string_view code, const std::string& message,
                                const std::string& serial);
/// Says which words the app expects from the user.
[[nodiscard]] Refusal acknowledgementRequired(const App& app, bool otherWordsWereGiven);
}  // namespace refusals

}  // namespace quillmere::simulator
