#include "control/socket_connection.hpp"

#include <cerrno>
#include <system_error>
#include <vector>

#include "control/socket_discovery.hpp"
#include "platform/file_system.hpp"
#include "platform/text.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

std::string description(int errorNumber) {
  return std::generic_category().message(errorNumber);
}

UnixSocket connectToFirst(const std::vector<std::string>& candidates) {
  std::string failures;
  for (const std::string& path : candidates) {
    const PathKind kind = kindOfPath(path);
    if (kind == PathKind::nothing) continue;

    std::string failure = "not a socket";
    if (kind == PathKind::socket) {
      auto socket = UnixSocket::create();
      if (!socket) throw errors::noControlSocket();
      failure = connectUnixSocket(*socket, path);
      if (failure.empty()) {
        socket->setTimeouts(transferTimeout);
        return std::move(*socket);
      }
    }
    if (!failures.empty()) failures += "; ";
    // A path may hold any bytes, and this text goes to the client.
    failures += withUtf8Repaired(path);
    failures += ": ";
    failures += failure;
  }
  if (failures.empty()) throw errors::controlSocketNotFound();
  throw errors::controlSocketUnreachable(failures);
}

}  // namespace

UnixSocket connectAppControlSocket() {
  try {
    return connectToFirst(socketCandidates(bundledAppIdentifier(executablePath())));
  } catch (const std::system_error&) {
    // Not the next candidate: it may be another app's.
    throw errors::noControlSocket();
  }
}

std::string connectUnixSocket(const UnixSocket& socket, const std::string& path) {
  if (path.size() > maxSocketPathBytes) return "The MCP control socket path is too long.";

  // Whether a connect that can't be made at once waits is for us to say, and for how long.
  int error = socket.connectTo(path);
  if (error == EINPROGRESS) {
    const UnixSocket::Wait wait = socket.waitUntilWritable(connectTimeout);
    if (wait.timedOut) return "Timed out connecting to Quillmere MCP control socket.";
    error = wait.error != 0 ? wait.error : socket.takePendingError();
  }
  if (error != 0) return description(error);
  socket.block();
  return "";
}

}  // namespace quillmere
