// The failure value of the whole program, and every failure that the program raises itself.
#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace quillmere {

/// A failure that reaches the client with its own JSON-RPC error code and text. Thrown by value.
/// Any other failure is a `std::exception` and becomes an internal error.
struct MCPError {
  int code = 0;
  std::string message;
};

/// The failure that is being handled, as the client sees it: an `MCPError` unchanged, anything else
/// as an internal error. Call only inside a `catch` block.
[[nodiscard]] MCPError currentFailure();

/// `text` with each "{}" replaced by the next value in `values`. Pure.
[[nodiscard]] std::string filledIn(std::string_view text,
                                   std::initializer_list<std::string_view> values);

/// One kind of error: its code and its text, with "{}" where a value goes. A row compiles only if
/// its text has as many such places as its type says.
template <std::size_t places>
class Failure {
 public:
  consteval Failure(int errorCode, std::string_view errorText) : code(errorCode), text(errorText) {
    std::size_t found = 0;
    for (std::size_t at = text.find("{}"); at != std::string_view::npos;
         at = text.find("{}", at + 2)) {
      ++found;
    }
    if (found != places) throw "the text has another number of places";
  }

  /// The error with these values filled in: `throw errors::tooLong(key)`.
  template <std::convertible_to<std::string_view>... Values>
  requires(sizeof...(Values) == places) [[nodiscard]] MCPError operator()(
      const Values&... values) const {
    return {.code = code, .message = filledIn(text, {values...})};
  }

 private:
  int code;
  std::string_view text;
};

/// All error codes and texts.
namespace errors {

// JSON-RPC 2.0, section 5.1, and the codes that it leaves to the server.
inline constexpr int parseError = -32700;
inline constexpr int invalidRequest = -32600;
inline constexpr int methodNotFound = -32601;
inline constexpr int invalidParams = -32602;
inline constexpr int internalError = -32603;
inline constexpr int serverNotInitialized = -32002;
inline constexpr int desktopAppFailure = -32000;
inline constexpr int requestCancelled = -32800;

// Framing and envelope.
inline constexpr Failure<0> notUtf8{parseError, "Parse error: input is not valid UTF-8."};
inline constexpr Failure<0> incompleteHeaders{parseError,
                                              "Parse error: incomplete Content-Length headers."};
inline constexpr Failure<0> tooManyHeaders{parseError,
                                           "Parse error: too many Content-Length headers."};
inline constexpr Failure<0> headerNotAscii{parseError,
                                           "Parse error: Content-Length header is not ASCII."};
inline constexpr Failure<0> missingContentLength{parseError,
                                                 "Parse error: missing Content-Length."};
inline constexpr Failure<0> incompletePayload{parseError,
                                              "Parse error: incomplete Content-Length payload."};
inline constexpr Failure<0> messageTooLarge{invalidRequest, "JSON-RPC message is too large."};
inline constexpr Failure<0> messageNotAnObject{invalidRequest,
                                               "JSON-RPC message must be an object."};
inline constexpr Failure<0> idOfWrongType{invalidRequest,
                                          "JSON-RPC id must be a string or number when present."};
inline constexpr Failure<0> idIsBoolean{invalidRequest, "JSON-RPC id must not be a boolean."};
inline constexpr Failure<1> methodRequiresId{invalidRequest,
                                             "JSON-RPC request method requires an id: {}"};
inline constexpr Failure<0> wrongJsonRpcVersion{invalidRequest, "JSON-RPC version must be 2.0."};
inline constexpr Failure<0> methodNotAString{invalidRequest, "JSON-RPC method must be a string."};
inline constexpr Failure<1> unknownMethod{methodNotFound, "Method not found: {}"};
inline constexpr Failure<0> paramsNotAnObject{invalidParams,
                                              "params must be an object when provided."};
inline constexpr Failure<1> internal{internalError, "Internal error: {}"};
/// There is too little memory for a message or its response.
inline constexpr Failure<0> outOfMemory{internalError, "Internal error: out of memory."};
/// The system has no thread to carry out a request.
inline constexpr Failure<0> noThread{internalError,
                                     "Internal error: no thread is available for this request."};

// Lifecycle.
inline constexpr Failure<0> protocolVersionNotAString{
    invalidParams, "initialize params.protocolVersion must be a string when provided."};
inline constexpr Failure<1> notInitialized{
    serverNotInitialized,
    "Server is not initialized. Call initialize with a supported protocolVersion before {}."};

// Tool calls and their arguments.
inline constexpr Failure<0> toolNameMissing{invalidParams, "tools/call requires params.name."};
inline constexpr Failure<0> toolArgumentsNotAnObject{
    invalidParams, "tools/call params.arguments must be an object."};
inline constexpr Failure<1> unknownTool{invalidParams, "Unknown Quillmere tool: {}"};
inline constexpr Failure<2> unsupportedArgument{invalidParams, "Unsupported argument for {}: {}"};
inline constexpr Failure<2> missingArgument{invalidParams, "{} requires argument: {}"};
inline constexpr Failure<1> missingSessionTarget{invalidParams,
                                                 "{} requires argument: deviceSerial or sessionId"};
inline constexpr Failure<1> notAString{invalidParams, "{} must be a string."};
inline constexpr Failure<1> notANumber{invalidParams, "{} must be a number."};
inline constexpr Failure<1> notAnInteger{invalidParams, "{} must be an integer."};
inline constexpr Failure<1> notABoolean{invalidParams, "{} must be a boolean."};
/// The key, and the list of values as the client sees it.
inline constexpr Failure<2> notOneOf{invalidParams, "{} must be one of: {}."};
inline constexpr Failure<1> tooShort{invalidParams, "{} is too short."};
inline constexpr Failure<1> tooLong{invalidParams, "{} is too long."};
inline constexpr Failure<1> notFinite{invalidParams, "{} must be finite."};
inline constexpr Failure<1> belowMinimum{invalidParams, "{} is below the minimum."};
inline constexpr Failure<1> aboveMaximum{invalidParams, "{} is above the maximum."};
inline constexpr Failure<0> requestTooLarge{invalidParams,
                                            "Quillmere MCP tool request is too large."};

// Resources and prompts.
inline constexpr Failure<1> unknownResource{invalidParams, "Unknown Quillmere resource: {}"};
inline constexpr Failure<0> promptNameMissing{invalidParams, "prompts/get requires params.name."};
inline constexpr Failure<1> unknownPrompt{invalidParams, "Unknown prompt: {}"};
inline constexpr Failure<2> unsupportedPromptArgument{invalidParams,
                                                      "Unsupported prompt argument for {}: {}"};
inline constexpr Failure<2> missingPromptArgument{invalidParams, "{} requires prompt argument: {}"};

// The desktop app.
inline constexpr Failure<0> noControlSocket{desktopAppFailure,
                                            "Could not create Quillmere MCP control socket."};
inline constexpr Failure<0> controlSocketNotFound{
    desktopAppFailure, "Quillmere MCP control socket was not found. Start Quillmere first."};
inline constexpr Failure<1> controlSocketUnreachable{
    desktopAppFailure, "Could not reach Quillmere MCP control socket: {}"};
inline constexpr Failure<0> controlWriteFailed{desktopAppFailure,
                                               "Could not write to Quillmere MCP control socket."};
inline constexpr Failure<0> controlConnectionClosed{desktopAppFailure,
                                                    "Quillmere closed the MCP control connection."};
inline constexpr Failure<0> invalidControlFrame{
    desktopAppFailure, "Quillmere returned an invalid MCP control response frame."};
inline constexpr Failure<0> invalidControlPayload{
    desktopAppFailure, "Quillmere returned an invalid MCP control payload."};
/// Never reaches the client: a request that was cancelled gets no response.
inline constexpr Failure<0> cancelled{requestCancelled, "MCP request was cancelled."};

}  // namespace errors

}  // namespace quillmere
