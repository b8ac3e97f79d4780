// An error of the protocol ends the whole run in some clients, and others hide it from their model.
#include "compat/failure.hpp"

#include <string>
#include <string_view>

#include "compat/tool_list.hpp"

namespace quillmere {

namespace {

/// What to do when the app could not be asked, or did not respond.
std::string adviceOnApp(const Tool& tool, std::string_view failure) {
  if (failure == errors::controlSocketNotFound().message ||
      failure.starts_with(errors::controlSocketUnreachable("").message)) {
    return "Ask the user to open the Quillmere app, then call again. Without the app, "
           "quillmere-desktop-simulator stands in for it.";
  }
  if (changesNothing(tool)) return "Call again.";
  return "The action may have been carried out. Look at the screen before you repeat it.";
}

/// The schema of the argument that the failure's text begins or ends with; else which arguments
/// there are.
std::string adviceOnArguments(const Tool& tool, std::string_view text) {
  std::string names;
  for (const Property& property : compatPropertiesOf(tool)) {
    const std::string name(property.name);
    if (text.starts_with(name + " ") || text.ends_with(" " + name)) {
      return name + ": " + propertySchema(property).str();
    }
    names += (names.empty() ? "" : ", ") + name;
  }
  return "Its arguments are: " + names;
}

}  // namespace

std::optional<JsonText> showCompatFailure(const Tool& tool, const MCPError& failure) {
  const std::string advice = failure.code == errors::invalidParams
                                 ? adviceOnArguments(tool, failure.message)
                                 : adviceOnApp(tool, failure.message);
  const std::string text = "Quillmere tool call failed: " + failure.message + "\n" + advice;
  JsonText content = JsonText::array();
  content.add(JsonText{{"type", "text"}, {"text", text}});
  return JsonText{{"content", std::move(content)}, {"isError", true}};
}

}  // namespace quillmere
