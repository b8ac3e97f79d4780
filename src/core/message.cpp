#include "core/message.hpp"

#include <utility>

#include "platform/json_parser.hpp"

namespace quillmere {

JsonObject parseMessage(std::string_view payload) {
  JsonValue message = parseJson(payload);
  if (JsonObject* object = message.asObject()) return std::move(*object);
  throw errors::messageNotAnObject();
}

std::optional<JsonValue> requestIDOf(const JsonObject& message) {
  const JsonValue* id = message.find("id");
  if (id == nullptr || id->isNull()) return std::nullopt;
  if (id->asBoolean()) throw errors::idIsBoolean();
  if (id->asString() == nullptr && id->asNumber() == nullptr) throw errors::idOfWrongType();
  return *id;
}

JsonObject makeResultResponse(const JsonValue& id, JsonObject result) {
  JsonObject response{{"jsonrpc", "2.0"}, {"id", id}};
  response.set("result", std::move(result));
  return response;
}

JsonObject makeErrorResponse(const std::optional<JsonValue>& id, const MCPError& error) {
  JsonObject details{{"code", error.code}, {"message", error.message}};
  if (error.data) details.set("data", *error.data);
  return JsonObject{
      {"jsonrpc", "2.0"}, {"id", id.value_or(JsonValue())}, {"error", std::move(details)}};
}

}  // namespace quillmere
