// What the threads of the one server share.
#pragma once

#include "core/framing.hpp"
#include "platform/worker_pool.hpp"
#include "shared/in_flight_request.hpp"
#include "shared/server_state.hpp"

namespace quillmere {

/// Made once at start and never destroyed: workers may still use it while the process ends. Each
/// part but the pool, which takes work from the main thread alone, is safe to use from any thread.
struct ServerContext {
  ServerState state;
  MessageWriter output;
  InFlightRequests inFlightRequests;
  WorkerPool workers;

  /// Writes its messages to `descriptor`, which stays the caller's.
  explicit ServerContext(int descriptor) : output(descriptor, state) {}
};

}  // namespace quillmere
