#include "protocol/in_flight_request.hpp"

#include <utility>

#include "json/writer.hpp"

namespace quillmere {

std::string requestIDKey(const JsonValue& id) {
  if (const auto number = id.asNumber()) return number->canonicalText();
  // We rewrite the string, so that different escapes for the same text give the same id. Its quotes
  // tell it from a number.
  if (const auto string = id.asString()) return JsonText(*string).str();
  return std::string(id.text());
}

void InFlightRequest::cancel(std::optional<std::string> reason) {
  std::shared_ptr<const UnixSocket> open;
  {
    const std::lock_guard hold(lock);
    _cancelled = true;
    _reason = std::move(reason);
    open = std::move(_socketDescriptor);
  }
  // Our reference keeps the descriptor's number taken until the shutdown is done, so no other call
  // can get it meanwhile.
  if (open) open->shutDown();
}

bool InFlightRequest::isCancelled() const {
  const std::lock_guard hold(lock);
  return _cancelled;
}

bool InFlightRequest::attach(std::shared_ptr<const UnixSocket> connection) {
  const std::lock_guard hold(lock);
  if (_cancelled) return false;
  _socketDescriptor = std::move(connection);
  return true;
}

void InFlightRequest::detach() {
  std::shared_ptr<const UnixSocket> released;
  const std::lock_guard hold(lock);
  // Swapped, not reset: the last reference must close the descriptor after releasing the lock.
  released.swap(_socketDescriptor);
}

void InFlightRequests::add(const std::shared_ptr<InFlightRequest>& request) {
  const std::lock_guard hold(inFlightLock);
  _requests.insert_or_assign(request->key, request);
}

std::shared_ptr<InFlightRequest> InFlightRequests::find(const JsonValue& requestID) const {
  const std::string key = requestIDKey(requestID);
  const std::lock_guard hold(inFlightLock);
  const auto place = _requests.find(key);
  return place == _requests.end() ? nullptr : place->second;
}

void InFlightRequests::remove(const InFlightRequest& request) noexcept {
  std::shared_ptr<InFlightRequest> removed;
  const std::lock_guard hold(inFlightLock);
  const auto place = _requests.find(request.key);
  if (place == _requests.end() || place->second.get() != &request) return;
  removed = std::move(place->second);
  // The record itself is freed after the lock is released: it may own a message of megabytes.
  _requests.erase(place);
}

}  // namespace quillmere
