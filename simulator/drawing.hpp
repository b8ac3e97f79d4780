// Pictures of simulated screens.
#pragma once

#include <string>

#include "simulator/phone.hpp"

namespace quillmere::simulator {

/// The view as a PNG file, `mirror` pixels large: the same nodes, at the same places, as answers
/// show. Thread-safe. Takes milliseconds. Throws `std::runtime_error` when no picture can be made.
[[nodiscard]] std::string pngOf(const View& view);

}  // namespace quillmere::simulator
