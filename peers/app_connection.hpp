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

/// Every function waits as long as it must, and throws `TimedOut` when that is too long. One thread
/// at a time, except for `close`.
class AppConnection {
 public:
  explicit AppConnection(Descriptor connection);

  /// Reads exactly `size` bytes; nothing when the server has closed before.
  [[nodiscard]] std::optional<std::string> receiveBytes(std::size_t size) const;
  /// Reads one control frame: its body, or nothing when the server has closed before.
  [[nodiscard]] std::optional<std::string> receiveText() const;
  /// The same as JSON, or null.
  [[nodiscard]] std::shared_ptr<const JsonDocument> receive() const;

  /// Sends bytes as they are, or an object as one control frame. Returns false when the server has
  /// gone.
  bool send(std::string_view bytes) const;
  bool answer(const JsonText& payload) const;

  /// Waits until the server has closed its end. Returns how many bytes came before that.
  std::size_t waitUntilClosed() const;

  /// Ends the connection: the server sees it as closed. Going out of scope does the same. From any
  /// thread.
  void close() const;

  [[nodiscard]] int number() const { return descriptor.number(); }

 private:
  /// One `recv`: how many bytes came, 0 at the end.
  std::size_t receiveSome(char* to, std::size_t most, const char* what) const;

  Descriptor descriptor;
};

}  // namespace quillmere
