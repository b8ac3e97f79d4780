// The server: what its threads share, and the loop that reads messages and responds to them.
#pragma once

#include "mcp/method_table.hpp"
#include "platform/buffer.hpp"
#include "platform/worker_pool.hpp"
#include "protocol/framing.hpp"

namespace quillmere {

/// What the threads of the one server share. Made once at start and never destroyed: workers may
/// still use it while the process ends. Any thread may use any part.
struct Server {
  ServerContext context;
  MessageWriter output;
  WorkerPool workers;

  /// Writes responses to `descriptor`, which stays the caller's.
  Server(int descriptor, const Dialect& dialect)
      : context{dialect}, output(descriptor, context.state) {}
};

/// Reads messages from `descriptor` and responds to them, until input ends or the client asks for
/// shutdown. Does not wait for requests that are still running on workers. Blocks; main thread
/// only. Every exception becomes an error response, and reading goes on. Only when memory runs out
/// before we know a message's id does the process end.
void serve(int descriptor, Server& server);

/// Processes one message: responds to it, hands it to a worker, or ignores it. Returns false when
/// the read loop must end. Main thread only. Throws `std::bad_alloc` when memory runs out before
/// the id is known, or for a message without an id.
[[nodiscard]] bool processPayload(Bytes bytes, Server& server);

}  // namespace quillmere
