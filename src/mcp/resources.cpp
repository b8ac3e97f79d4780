#include "mcp/resources.hpp"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "control/control_call.hpp"
#include "platform/json_writer.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

constexpr std::string_view jsonMimeType = "application/json";

struct Resource {
  std::string_view uri;
  std::string_view name;
  std::string_view title;
  std::string_view description;
  /// What the desktop app is asked for a snapshot.
  std::string_view command;
  bool includeOffline = false;
};

constexpr Resource resources[] = {
    {.uri = "quillmere://devices",
     .name = "devices",
     .title = "Quillmere Devices",
     .description = "Current Android device snapshots from Quillmere.",
     .command = "listDevices",
     .includeOffline = true},
    {.uri = "quillmere://sessions",
     .name = "sessions",
     .title = "Quillmere Mirror Sessions",
     .description = "Current active mirror session snapshots from Quillmere.",
     .command = "listSessions"},
};

}  // namespace

JsonArray resourceList() {
  JsonArray list;
  for (const Resource& resource : resources) {
    list.emplace_back(JsonObject{{"uri", resource.uri},
                                 {"name", resource.name},
                                 {"title", resource.title},
                                 {"description", resource.description},
                                 {"mimeType", jsonMimeType}});
  }
  return list;
}

JsonObject readResource(const JsonObject& params, InFlightRequest* inFlight) {
  const std::string* given = params.findString("uri");
  const std::string uri = given != nullptr ? *given : "";
  const auto* resource = std::ranges::find(resources, uri, &Resource::uri);
  if (resource == std::end(resources)) throw errors::unknownResource(uri);

  JsonObject arguments;
  if (resource->includeOffline) arguments.set("includeOffline", true);
  const JsonObject payload = callAppControl(resource->command, arguments, inFlight);

  JsonObject content{{"uri", uri}, {"mimeType", jsonMimeType}};
  content.set("text", indentedJson(payload));
  JsonObject result;
  result.set("contents", arrayOf(std::move(content)));
  return result;
}

}  // namespace quillmere
