// The desktop app's end of one connection.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/descriptor.hpp"

namespace quillmere {

/// Functions block as long as they must, and throw `TimedOut` if that is too long. One thread at a
/// time, except for `close`.
class AppConnection {
 public:
  explicit AppConnection(Descriptor connection);

  /// Reads exactly `size` bytes; nothing if the server closes before that.
  [[nodiscard]] std::optional<std::string> receiveBytes(std::size_t size) const;
  /// Reads one control frame and returns its body; nothing if the server closes before its end.
  [[nodiscard]] std::optional<std::string> receiveText() const;
  /// The same as JSON, or null.
  [[nodiscard]] std::shared_ptr<const JsonDocument> receive() const;

  /// Sends bytes unchanged, or an object as one control frame. Returns false when the server has
  /// closed its end.
  bool send(std::string_view bytes) const;
  bool answer(const JsonText& payload) const;

  /// Waits until the server closes its end. Returns how many bytes came before that.
  std::size_t waitUntilClosed() const;

  /// Ends the connection: the server sees it as closed. The destructor does the same. Thread-safe.
  void close() const;

  [[nodiscard]] int number() const { return descriptor.number(); }

 private:
  /// One `recv`: how many bytes came, 0 at the end.
  std::size_t receiveSome(char* to, std::size_t most, const char* what) const;

  Descriptor descriptor;
};

}  // namespace quillmere
