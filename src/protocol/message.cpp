#include "protocol/message.hpp"

#include <utility>

namespace quillmere {

std::shared_ptr<const JsonDocument> parseMessage(Bytes bytes) {
  try {
    auto message = parseJson(std::move(bytes));
    if (!message->root().asObject()) throw errors::messageNotAnObject();
    return message;
  } catch (const JsonError& failure) {
    if (failure.kind == JsonError::Kind::notUtf8) throw errors::notUtf8();
    throw;
  }
}

std::optional<JsonValue> requestIDOf(const JsonObject& message) {
  const auto id = message.find("id");
  // JSON-RPC 2.0 discourages null as an id. Here null counts as no id.
  if (!id || id->isNull()) return std::nullopt;
  if (id->asBoolean()) throw errors::idIsBoolean();
  if (!id->isString() && !id->asNumber()) throw errors::idOfWrongType();
  return id;
}

JsonText makeResultResponse(const JsonValue& id, JsonText result) {
  JsonText response{{"jsonrpc", "2.0"}, {"id", id}};
  response.set("result", std::move(result));
  return response;
}

JsonText makeErrorResponse(const std::optional<JsonValue>& id, const MCPError& error) {
  return JsonText{{"jsonrpc", "2.0"},
                  {"id", id ? JsonText(*id) : nullptr},
                  {"error", JsonText{{"code", error.code}, {"message", error.message}}}};
}

}  // namespace quillmere
