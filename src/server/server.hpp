// The server: what its threads share, and the loop that reads and answers messages.
#pragma once

#include "platform/buffer.hpp"
#include "platform/worker_pool.hpp"
#include "protocol/framing.hpp"
#include "protocol/in_flight_request.hpp"
#include "protocol/server_state.hpp"
#include "tools/form.hpp"

namespace quillmere {

/// What the threads of the one server share. Made once at start and never destroyed: workers may
/// still use it while the process ends. Each part but the pool, which takes work from the main
/// thread alone, is safe to use from any thread.
struct ServerContext {
  ServerState state;
  MessageWriter output;
  InFlightRequests inFlightRequests;
  WorkerPool workers;

  const Form& form;

  /// Messages go to `descriptor`, which stays the caller's. `toForm` must outlive this.
  ServerContext(int descriptor, const Form& toForm) : output(descriptor, state), form(toForm) {}
};

/// Reads messages from `descriptor` and answers them, until input ends or the client asks for
/// shutdown. Requests that workers carry out at that moment are left as they are. Blocks; main
/// thread only. Whatever is thrown on the way is answered and ends nothing, with one exception:
/// when memory runs out before the id of a message is known, the process ends.
void serve(int descriptor, ServerContext& server);

/// Takes one payload: answers it here, hands it to a worker, or ignores it. Returns false
/// when the read loop is to end. Main thread only. Throws `std::bad_alloc` when there is no memory
/// to read the payload, or for a message without an id.
[[nodiscard]] bool processPayload(Bytes payload, ServerContext& server);

}  // namespace quillmere
