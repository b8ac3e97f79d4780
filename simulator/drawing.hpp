// Pictures of simulated screens.
#pragma once

#include <string>

#include "simulator/phone.hpp"

namespace quillmere::simulator {

/// The view as a PNG file as large as the phone's screen, with the same nodes at the same places as
/// in responses. Thread-safe. Takes milliseconds. Throws `std::runtime_error` when drawing fails.
[[nodiscard]] std::string pngOf(const View& view);

}  // namespace quillmere::simulator
