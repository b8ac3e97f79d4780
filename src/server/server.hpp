// The server: what its threads share, and the loop that reads messages and responds to them.
#pragma once

#include "mcp/method_table.hpp"
#include "platform/buffer.hpp"
#include "platform/worker_pool.hpp"
#include "protocol/framing.hpp"

namespace quillmere {

/// What the threads of the one server share. Made once at start and never destroyed: workers may
/// still use it while the process ends. Each part but the pool, which takes work from the main
/// thread alone, is safe to use from any thread.
struct Server {
  ServerContext context;
  MessageWriter output;
  WorkerPool workers;

  /// Messages go to `descriptor`, which stays the caller's.
  Server(int descriptor, const Dialect& dialect)
      : context{dialect}, output(descriptor, context.state) {}
};

/// Reads messages from `descriptor` and responds to them, until input ends or the client asks for
/// shutdown. Requests that workers carry out at that moment are left as they are. Blocks; main
/// thread only. Whatever is thrown on the way becomes an error response and ends nothing, with one
/// exception: when memory runs out before the id of a message is known, the process ends.
void serve(int descriptor, Server& server);

/// Takes one message: responds to it here, hands it to a worker, or ignores it. Returns false when
/// the read loop is to end. Main thread only. Throws `std::bad_alloc` when there is no memory to
/// read the message, or for a message without an id.
[[nodiscard]] bool processPayload(Bytes bytes, Server& server);

}  // namespace quillmere
