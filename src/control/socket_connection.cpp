#include "control/socket_connection.hpp"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

#include "control/socket_discovery.hpp"
#include "platform/file_system.hpp"
#include "platform/text.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

std::string description(int errorNumber) {
  return std::generic_category().message(errorNumber);
}

}  // namespace

UnixSocket connectAppControlSocket() {
  std::string failures;
  for (const std::string& path : socketCandidates()) {
    if (!pathExists(path)) continue;

    std::string failure = "not a socket";
    if (isSocket(path)) {
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

std::string connectUnixSocket(const UnixSocket& socket, const std::string& path) {
  if (path.size() > maxSocketPathBytes) return "The MCP control socket path is too long.";

  const auto flags = socket.statusFlags();
  const auto restoreFlags = [&] {
    if (flags) socket.setStatusFlags(*flags);
  };
  if (flags) socket.setStatusFlags(*flags | O_NONBLOCK);
  const int error = socket.connectTo(path);
  if (error != EINPROGRESS) {
    restoreFlags();
    return error == 0 ? "" : description(error);
  }

  const UnixSocket::Wait wait = socket.waitUntilWritable(connectTimeout);
  restoreFlags();
  if (wait.timedOut) return "Timed out connecting to Quillmere MCP control socket.";
  if (wait.error != 0) return description(wait.error);
  const int pending = socket.takePendingError();
  return pending == 0 ? "" : description(pending);
}

}  // namespace quillmere
