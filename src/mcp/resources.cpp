// The lists of two tools, for clients that show resources. Reading one calls the app like a tool
// does, but with the arguments in its row and none from the client.
#include <algorithm>
#include <span>
#include <string_view>

#include "control/control_call.hpp"
#include "json/document.hpp"
#include "json/writer.hpp"
#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace {

constexpr std::string_view jsonMimeType = "application/json";

struct Resource {
  std::string_view uri;
  std::string_view name;
  std::string_view title;
  std::string_view description;
  /// The desktop app's command for a snapshot.
  std::string_view command;
  std::string_view arguments;
};

constexpr Resource resources[] = {
    {.uri = "quillmere://devices",
     .name = "devices",
     .title = "Quillmere Devices",
     .description = "Current Android device snapshots from Quillmere.",
     .command = "listDevices",
     .arguments = R"({"includeOffline":true})"},
    {.uri = "quillmere://sessions",
     .name = "sessions",
     .title = "Quillmere Mirror Sessions",
     .description = "Current active mirror session snapshots from Quillmere.",
     .command = "listSessions",
     .arguments = "{}"},
};

}  // namespace

MethodResult listResources(const JsonObject& /*params*/, const RequestContext& /*context*/) {
  JsonText list = JsonText::array();
  for (const Resource& resource : resources) {
    list.add(JsonText{{"uri", resource.uri},
                      {"name", resource.name},
                      {"title", resource.title},
                      {"description", resource.description},
                      {"mimeType", jsonMimeType}});
  }
  return JsonText{{"resources", std::move(list)}};
}

MethodResult readResource(const JsonObject& params, const RequestContext& context) {
  const auto given = params.findString("uri");
  const std::string_view uri = given ? given->view() : "";
  const auto* resource = std::ranges::find(resources, uri, &Resource::uri);
  if (resource == std::end(resources)) throw errors::unknownResource(uri);

  // As a JSON object, like a tool's arguments, so that the same checks and limits apply.
  const auto arguments = parseJson(resource->arguments);
  const auto appResponse =
      callAppControl(resource->command, arguments->object(), *context.inFlight);
  JsonText contents = JsonText::array();
  contents.add(JsonText{
      {"uri", uri}, {"mimeType", jsonMimeType}, {"text", indentedJson(appResponse->root())}});
  return JsonText{{"contents", std::move(contents)}};
}

}  // namespace quillmere
