#include "support/snapshot.hpp"

#include <fstream>
#include <iterator>

namespace quillmere {

std::string snapshot(std::string_view name) {
  std::ifstream file(QUILLMERE_SNAPSHOTS + std::string(name));
  std::string text{std::istreambuf_iterator<char>(file), {}};
  constexpr std::string_view version = "@PROJECT_VERSION@";
  if (const auto at = text.find(version); at != std::string::npos) {
    text.replace(at, version.size(), QUILLMERE_PROJECT_VERSION);
  }
  return text;
}

}  // namespace quillmere
