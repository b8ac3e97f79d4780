#include "control/control_frame.hpp"

namespace quillmere {

std::string controlFrame(std::string_view body) {
  const auto length = static_cast<std::uint32_t>(body.size());
  std::string frame;
  frame.reserve(controlPrefixBytes + body.size());
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    frame += static_cast<char>(static_cast<unsigned char>(length >> shift));
  }
  frame += body;
  return frame;
}

std::uint32_t controlBodyLength(std::string_view frame) {
  std::uint32_t length = 0;
  for (const char byte : frame.substr(0, controlPrefixBytes))
    length = (length << 8U) | static_cast<unsigned char>(byte);
  return length;
}

}  // namespace quillmere
