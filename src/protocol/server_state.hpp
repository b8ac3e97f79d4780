// The protocol state of the one server in the process.
#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "protocol/server_info.hpp"

namespace quillmere {

/// All functions are thread-safe and hold the lock for one field access.
class ServerState {
 public:
  /// Whether frames go out after a `Content-Length` header. Once on, it stays on.
  [[nodiscard]] bool usesContentLengthFraming() const { return get(_useContentLengthFraming); }
  void useContentLengthFraming() { set(_useContentLengthFraming, true); }

  [[nodiscard]] bool isShutdownRequested() const { return get(_shutdownRequested); }
  void requestShutdown() { set(_shutdownRequested, true); }

  [[nodiscard]] bool isInitialized() const { return get(_initialized); }
  void setInitialized() { set(_initialized, true); }

  [[nodiscard]] std::string negotiatedProtocolVersion() const {
    return get(_negotiatedProtocolVersion);
  }
  void setNegotiatedProtocolVersion(std::string version) {
    set(_negotiatedProtocolVersion, std::move(version));
  }

 private:
  template <typename Field>
  Field get(const Field& field) const {
    const std::lock_guard hold(lock);
    return field;
  }
  template <typename Field>
  void set(Field& field, Field value) {
    const std::lock_guard hold(lock);
    field = std::move(value);
  }

  mutable std::mutex lock;
  bool _useContentLengthFraming = false;
  bool _shutdownRequested = false;
  bool _initialized = false;
  std::string _negotiatedProtocolVersion{newestProtocolVersion};
};

}  // namespace quillmere
