// The failure value of the whole program, and every failure that the program raises itself.
#pragma once

#include <string>
#include <string_view>

namespace quillmere {

/// A failure that reaches the client with its own JSON-RPC error code and text. Thrown by value.
/// Every other failure is a `std::exception` and becomes an internal error.
struct MCPError {
  int code = 0;
  std::string message;
};

/// The failure that is being handled, as the client shall see it: an `MCPError` unchanged, anything
/// else as an internal error. Call only inside a `catch` block.
[[nodiscard]] MCPError currentFailure();

/// The one home of every error code and text. Each function makes the error that its name says.
namespace errors {

// Framing and envelope (JSON-RPC 2.0, section 5.1: -32700 parse error, -32600 invalid request).
[[nodiscard]] MCPError notUtf8();
[[nodiscard]] MCPError incompleteHeaders();
[[nodiscard]] MCPError tooManyHeaders();
[[nodiscard]] MCPError headerNotAscii();
[[nodiscard]] MCPError missingContentLength();
[[nodiscard]] MCPError incompletePayload();
[[nodiscard]] MCPError messageTooLarge();
[[nodiscard]] MCPError messageNotAnObject();
[[nodiscard]] MCPError idOfWrongType();
[[nodiscard]] MCPError idIsBoolean();
[[nodiscard]] MCPError methodRequiresId(std::string_view method);
[[nodiscard]] MCPError wrongJsonRpcVersion();
[[nodiscard]] MCPError methodNotAString();
[[nodiscard]] MCPError unknownMethod(std::string_view method);
[[nodiscard]] MCPError paramsNotAnObject();
[[nodiscard]] MCPError internal(std::string_view description);
/// There is not the memory that a message or its answer needs.
[[nodiscard]] MCPError outOfMemory();
/// The system gives no thread to carry out a request.
[[nodiscard]] MCPError noThread();

// Lifecycle.
[[nodiscard]] MCPError protocolVersionNotAString();
[[nodiscard]] MCPError notInitialized(std::string_view method);

// Tool calls and their arguments.
[[nodiscard]] MCPError toolNameMissing();
[[nodiscard]] MCPError toolArgumentsNotAnObject();
[[nodiscard]] MCPError unknownTool(std::string_view name);
[[nodiscard]] MCPError unsupportedArgument(std::string_view tool, std::string_view key);
[[nodiscard]] MCPError missingArgument(std::string_view tool, std::string_view key);
[[nodiscard]] MCPError missingSessionTarget(std::string_view tool);
[[nodiscard]] MCPError notAString(std::string_view key);
[[nodiscard]] MCPError notANumber(std::string_view key);
[[nodiscard]] MCPError notAnInteger(std::string_view key);
[[nodiscard]] MCPError notABoolean(std::string_view key);
/// `allowed` is the list as the client shall see it.
[[nodiscard]] MCPError notOneOf(std::string_view key, std::string_view allowed);
[[nodiscard]] MCPError tooShort(std::string_view key);
[[nodiscard]] MCPError tooLong(std::string_view key);
[[nodiscard]] MCPError notFinite(std::string_view key);
[[nodiscard]] MCPError belowMinimum(std::string_view key);
[[nodiscard]] MCPError aboveMaximum(std::string_view key);
[[nodiscard]] MCPError requestTooLarge();

// Resources and prompts.
[[nodiscard]] MCPError unknownResource(std::string_view uri);
[[nodiscard]] MCPError promptNameMissing();
[[nodiscard]] MCPError unknownPrompt(std::string_view name);
[[nodiscard]] MCPError unsupportedPromptArgument(std::string_view prompt, std::string_view key);
[[nodiscard]] MCPError missingPromptArgument(std::string_view prompt, std::string_view argument);

// The desktop app.
[[nodiscard]] MCPError noControlSocket();
[[nodiscard]] MCPError controlSocketNotFound();
[[nodiscard]] MCPError controlSocketUnreachable(std::string_view details);
[[nodiscard]] MCPError controlWriteFailed();
[[nodiscard]] MCPError controlConnectionClosed();
[[nodiscard]] MCPError invalidControlFrame();
[[nodiscard]] MCPError invalidControlPayload();
/// Never reaches the client: a cancelled request gets no response.
[[nodiscard]] MCPError cancelled();

}  // namespace errors

}  // namespace quillmere
