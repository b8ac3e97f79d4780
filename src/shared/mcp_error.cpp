#include "shared/mcp_error.hpp"

#include <exception>
#include <initializer_list>
#include <new>

#include "platform/text.hpp"

namespace quillmere {

MCPError currentFailure() {
  try {
    throw;
  } catch (const MCPError& error) {
    return error;
  } catch (const std::bad_alloc&) {
    return errors::outOfMemory();
  } catch (const std::exception& failure) {
    return errors::internal(failure.what());
  } catch (...) {
    return errors::internal("unknown failure");
  }
}

namespace errors {

namespace {

constexpr int parseError = -32700;
constexpr int invalidRequest = -32600;
constexpr int methodNotFound = -32601;
constexpr int invalidParams = -32602;
constexpr int internalError = -32603;
constexpr int serverNotInitialized = -32002;
constexpr int desktopAppFailure = -32000;
constexpr int requestCancelled = -32800;

MCPError error(int code, std::initializer_list<std::string_view> pieces) {
  return {.code = code, .message = joined({pieces.begin(), pieces.size()}, "")};
}

}  // namespace

MCPError notUtf8() {
  return error(parseError, {"Parse error: input is not valid UTF-8."});
}
MCPError incompleteHeaders() {
  return error(parseError, {"Parse error: incomplete Content-Length headers."});
}
MCPError tooManyHeaders() {
  return error(parseError, {"Parse error: too many Content-Length headers."});
}
MCPError headerNotAscii() {
  return error(parseError, {"Parse error: Content-Length header is not ASCII."});
}
MCPError missingContentLength() {
  return error(parseError, {"Parse error: missing Content-Length."});
}
MCPError incompletePayload() {
  return error(parseError, {"Parse error: incomplete Content-Length payload."});
}
MCPError messageTooLarge() {
  return error(invalidRequest, {"JSON-RPC message is too large."});
}
MCPError messageNotAnObject() {
  return error(invalidRequest, {"JSON-RPC message must be an object."});
}
MCPError idOfWrongType() {
  return error(invalidRequest, {"JSON-RPC id must be a string or number when present."});
}
MCPError idIsBoolean() {
  return error(invalidRequest, {"JSON-RPC id must not be a boolean."});
}
MCPError methodRequiresId(std::string_view method) {
  return error(invalidRequest, {"JSON-RPC request method requires an id: ", method});
}
MCPError wrongJsonRpcVersion() {
  return error(invalidRequest, {"JSON-RPC version must be 2.0."});
}
MCPError methodNotAString() {
  return error(invalidRequest, {"JSON-RPC method must be a string."});
}
MCPError unknownMethod(std::string_view method) {
  return error(methodNotFound, {"Method not found: ", method});
}
MCPError paramsNotAnObject() {
  return error(invalidParams, {"params must be an object when provided."});
}
MCPError internal(std::string_view description) {
  return error(internalError, {"Internal error: ", description});
}
MCPError outOfMemory() {
  return internal("out of memory.");
}
MCPError noThread() {
  return internal("no thread can be had for this request.");
}

MCPError protocolVersionNotAString() {
  return error(invalidParams,
               {"initialize params.protocolVersion must be a string when provided."});
}
MCPError notInitialized(std::string_view method) {
  return error(
      serverNotInitialized,
      {"Server is not initialized. Call initialize with a supported protocolVersion before ",
       method, "."});
}

MCPError toolNameMissing() {
  return error(invalidParams, {"tools/call requires params.name."});
}
MCPError toolArgumentsNotAnObject() {
  return error(invalidParams, {"tools/call params.arguments must be an object."});
}
MCPError unknownTool(std::string_view name) {
  return error(invalidParams, {"Unknown Quillmere tool: ", name});
}
MCPError unsupportedArgument(std::string_view tool, std::string_view key) {
  return error(invalidParams, {"Unsupported argument for ", tool, ": ", key});
}
MCPError missingArgument(std::string_view tool, std::string_view key) {
  return error(invalidParams, {tool, " requires argument: ", key});
}
MCPError missingSessionTarget(std::string_view tool) {
  return missingArgument(tool, "deviceSerial or sessionId");
}
MCPError notAString(std::string_view key) {
  return error(invalidParams, {key, " must be a string."});
}
MCPError notANumber(std::string_view key) {
  return error(invalidParams, {key, " must be a number."});
}
MCPError notAnInteger(std::string_view key) {
  return error(invalidParams, {key, " must be an integer."});
}
MCPError notABoolean(std::string_view key) {
  return error(invalidParams, {key, " must be a boolean."});
}
MCPError notOneOf(std::string_view key, std::string_view allowed) {
  return error(invalidParams, {key, " must be one of: ", allowed, "."});
}
MCPError tooShort(std::string_view key) {
  return error(invalidParams, {key, " is too short."});
}
MCPError tooLong(std::string_view key) {
  return error(invalidParams, {key, " is too long."});
}
MCPError notFinite(std::string_view key) {
  return error(invalidParams, {key, " must be finite."});
}
MCPError belowMinimum(std::string_view key) {
  return error(invalidParams, {key, " is below the minimum."});
}
MCPError aboveMaximum(std::string_view key) {
  return error(invalidParams, {key, " is above the maximum."});
}
MCPError requestTooLarge() {
  return error(invalidParams, {"Quillmere MCP tool request is too large."});
}

MCPError unknownResource(std::string_view uri) {
  return error(invalidParams, {"Unknown Quillmere resource: ", uri});
}
MCPError promptNameMissing() {
  return error(invalidParams, {"prompts/get requires params.name."});
}
MCPError unknownPrompt(std::string_view name) {
  return error(invalidParams, {"Unknown prompt: ", name});
}
MCPError unsupportedPromptArgument(std::string_view prompt, std::string_view key) {
  return error(invalidParams, {"Unsupported prompt argument for ", prompt, ": ", key});
}
MCPError missingPromptArgument(std::string_view prompt, std::string_view argument) {
  return error(invalidParams, {prompt, " requires prompt argument: ", argument});
}

MCPError noControlSocket() {
  return error(desktopAppFailure, {"Could not create Quillmere MCP control socket."});
}
MCPError controlSocketNotFound() {
  return error(desktopAppFailure,
               {"Quillmere MCP control socket was not found. Start Quillmere first."});
}
MCPError controlSocketUnreachable(std::string_view details) {
  return error(desktopAppFailure, {"Could not reach Quillmere MCP control socket: ", details});
}
MCPError controlWriteFailed() {
  return error(desktopAppFailure, {"Could not write to Quillmere MCP control socket."});
}
MCPError controlConnectionClosed() {
  return error(desktopAppFailure, {"Quillmere closed the MCP control connection."});
}
MCPError invalidControlFrame() {
  return error(desktopAppFailure, {"Quillmere returned an invalid MCP control response frame."});
}
MCPError invalidControlPayload() {
  return error(desktopAppFailure, {"Quillmere returned an invalid MCP control payload."});
}
MCPError cancelled() {
  return error(requestCancelled, {"MCP request was cancelled."});
}

}  // namespace errors

}  // namespace quillmere
