// What the one server of the process remembers of its conversation with the client.
#pragma once

#include <mutex>
#include <string>

#include "shared/server_info.hpp"

namespace quillmere {

/// Every function may be called from any thread.
class ServerState {
 public:
  /// Whether frames go out behind a `Content-Length` header. Once on, it stays on.
  [[nodiscard]] bool usesContentLengthFraming() const;
  void useContentLengthFraming();

  [[nodiscard]] bool isShutdownRequested() const;
  void requestShutdown();

  [[nodiscard]] bool isInitialized() const;
  void setInitialized();

  [[nodiscard]] std::string negotiatedProtocolVersion() const;
  void setNegotiatedProtocolVersion(std::string version);

 private:
  mutable std::mutex lock;
  bool _useContentLengthFraming = false;
  bool _shutdownRequested = false;
  bool _initialized = false;
  std::string _negotiatedProtocolVersion{newestProtocolVersion};
};

}  // namespace quillmere
