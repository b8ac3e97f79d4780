// Pipes and pairs of sockets.
#pragma once

#include "platform/descriptor.hpp"

namespace quillmere {

/// Two connected descriptors.
struct Channel {
  Descriptor readEnd;
  Descriptor writeEnd;
};
/// A pipe or a pair of connected stream sockets. Both throw `std::system_error`.
[[nodiscard]] Channel makePipe();
[[nodiscard]] Channel makeSocketPair();

}  // namespace quillmere
