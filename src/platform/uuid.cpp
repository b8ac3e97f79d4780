#include "platform/uuid.hpp"

#include <unistd.h>
#ifdef __APPLE__
#include <sys/random.h>
#endif

#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace quillmere {

std::string randomUuid() {
  std::array<unsigned char, 16> bytes;
  if (::getentropy(bytes.data(), bytes.size()) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
  // Six bits are not random: version 4, and the variant of RFC 9562.
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);

  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += hexDigits[bytes[i] >> 4U];
    text += hexDigits[bytes[i] & 0xFU];
  }
  return text;
}

}  // namespace quillmere
