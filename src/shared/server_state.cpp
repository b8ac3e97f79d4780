#include "shared/server_state.hpp"

#include <utility>

namespace quillmere {

bool ServerState::usesContentLengthFraming() const {
  const std::lock_guard hold(lock);
  return _useContentLengthFraming;
}

void ServerState::useContentLengthFraming() {
  const std::lock_guard hold(lock);
  _useContentLengthFraming = true;
}

bool ServerState::isShutdownRequested() const {
  const std::lock_guard hold(lock);
  return _shutdownRequested;
}

void ServerState::requestShutdown() {
  const std::lock_guard hold(lock);
  _shutdownRequested = true;
}

bool ServerState::isInitialized() const {
  const std::lock_guard hold(lock);
  return _initialized;
}

void ServerState::setInitialized() {
  const std::lock_guard hold(lock);
  _initialized = true;
}

std::string ServerState::negotiatedProtocolVersion() const {
  const std::lock_guard hold(lock);
  return _negotiatedProtocolVersion;
}

void ServerState::setNegotiatedProtocolVersion(std::string version) {
  const std::lock_guard hold(lock);
  _negotiatedProtocolVersion = std::move(version);
}

}  // namespace quillmere
