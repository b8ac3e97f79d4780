#include "simulator/refusal.hpp"

#include <utility>

namespace quillmere::simulator::refusals {

Refusal invalidArgument(std::string_view key, std::string_view must) {
  return {"invalidArgument", std::string(key) + " must be " + std::string(must) + "."};
}

Refusal noSession(std::string_view code, const std::string& message, const std::string& serial) {
  Refusal refusal(code, message + " Call quillmere.session.start first.");
  JsonText arguments = JsonText::object();
  if (!serial.empty()) arguments.set("deviceSerial", serial);
  refusal.besides.set("nextRecommendedTool", JsonText{{"name", "quillmere.session.start"},
                                                      {"arguments", std::move(arguments)}});
  return refusal;
}

Refusal acknowledgementRequired(const App& app, bool otherWordsWereGiven) {
  const std::string wanted(app.acknowledgement);
  const std::string title(app.title);
  const std::string reason =
      otherWordsWereGiven ? "These are not the acknowledgement words that " + title + " needs."
                          : title + " needs the user's explicit acknowledgement.";
  Refusal refusal(
      "userAcknowledgementRequired",
      reason + " Ask the user, then retry with userAcknowledgementText \"" + wanted + "\"");
  refusal.besides.set("requiredUserAcknowledgementText", wanted);
  return refusal;
}

}  // namespace quillmere::simulator::refusals
