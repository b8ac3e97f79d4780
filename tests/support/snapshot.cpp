#include "support/snapshot.hpp"

#include <fstream>
#include <iterator>

namespace quillmere {

std::string snapshot(std::string_view name) {
  std::ifstream file(QUILLMERE_SNAPSHOTS + std::string(name));
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace quillmere
