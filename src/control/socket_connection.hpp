// From the list of candidates to one connected socket, or to one error that says why not.
#pragma once

#include <chrono>
#include <string>

#include "platform/unix_socket.hpp"

namespace quillmere {

/// How long a connect that is under way is waited for, for each candidate.
inline constexpr std::chrono::milliseconds connectTimeout{3'000};
/// How long each send and each receive of a connected socket may take.
inline constexpr std::chrono::seconds transferTimeout{75};

/// Connects to the first candidate that takes the connection. Candidates that do not exist are
/// passed over; those that exist and fail are named in the error. Blocks up to `connectTimeout` a
/// candidate. Thread-safe. Throws `MCPError` -32000, also when for want of a resource it can't be
/// told which candidate is the right one.
[[nodiscard]] UnixSocket connectAppControlSocket();

/// Connects `socket`, a fresh one, to `path`, and makes it a blocking one. Returns the text of the
/// failure, empty when it is connected. Blocks up to `connectTimeout`.
[[nodiscard]] std::string connectUnixSocket(const UnixSocket& socket, const std::string& path);

}  // namespace quillmere
