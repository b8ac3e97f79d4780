#include "platform/app_group.hpp"

namespace quillmere {

std::optional<std::string> appGroupContainer(std::string_view /*group*/) {
  return std::nullopt;
}

}  // namespace quillmere
