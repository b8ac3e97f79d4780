// The read loop.
#pragma once

#include "core/server_context.hpp"
#include "platform/buffer.hpp"

namespace quillmere {

/// Reads messages from `descriptor` and answers them, until input ends or the client asks for
/// shutdown. Requests that workers carry out at that moment are left as they are. Blocks; main
/// thread only. Whatever is thrown on the way is answered and ends nothing, but for want of memory
/// before the id of a message is known: that ends the process.
void serve(int descriptor, ServerContext& server);

/// Takes one payload: answers it here, hands it to a worker, or passes over it in silence. Returns
/// false when the read loop is to end. Main thread only. Throws `std::bad_alloc` when there
/// is no memory to read the payload, or for a message without an id.
[[nodiscard]] bool processPayload(Bytes payload, ServerContext& server);

}  // namespace quillmere
