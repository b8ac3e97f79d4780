#include "protocol/mcp_error.hpp"

#include <exception>
#include <new>

namespace quillmere {

// The one place that decides what the client reads about an exception, wherever we catch it.
MCPError currentFailure() {
  try {
    throw;
  } catch (const MCPError& error) {
    return error;
  } catch (const std::bad_alloc&) {
    return errors::outOfMemory();
  } catch (const std::exception& failure) {
    return errors::internal(failure.what());
  } catch (...) {
    return errors::internal("unknown failure");
  }
}

std::string filledIn(std::string_view text, std::initializer_list<std::string_view> values) {
  std::string filled;
  for (const std::string_view value : values) {
    const std::size_t place = text.find("{}");
    filled += text.substr(0, place);
    filled += value;
    text.remove_prefix(place + 2);
  }
  filled += text;
  return filled;
}

}  // namespace quillmere
