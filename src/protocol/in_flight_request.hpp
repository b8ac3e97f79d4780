// The requests that workers are carrying out, so that the client can cancel them.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "json/document.hpp"
#include "platform/unix_socket.hpp"

namespace quillmere {

/// The key under which a request id is filed. A number and a string with the same digits have
/// different keys; two spellings of one number (`1`, `1.0`) have the same. Takes any value. Pure.
[[nodiscard]] std::string requestIDKey(const JsonValue& id);

/// The record of one running request, shared by its worker, by `InFlightRequests`, and for a moment
/// by whoever cancels it. Every function may be called from any thread.
class InFlightRequest {
 public:
  /// `id` is the one in `requestMessage`.
  InFlightRequest(std::shared_ptr<const JsonDocument> requestMessage, JsonValue id)
      : message(std::move(requestMessage)), requestID(id), key(requestIDKey(id)) {}

  /// The request as it came; views of its bytes are valid as long as this.
  const std::shared_ptr<const JsonDocument> message;
  const JsonValue requestID;
  /// The id's key, kept so that removing the record works without memory.
  const std::string key;

  /// Marks the request as cancelled and breaks its connection to the desktop app, if it has one: a
  /// send or receive that blocks on it returns at once. `reason` is what the client gave.
  void cancel(std::optional<std::string> reason);

  [[nodiscard]] bool isCancelled() const;

  /// Makes `connection` the one that `cancel` breaks. Returns false, and does not take it, when the
  /// request is cancelled already.
  [[nodiscard]] bool attach(std::shared_ptr<const UnixSocket> connection);

  /// Releases the connection: a later `cancel` breaks nothing.
  void detach();

 private:
  mutable std::mutex lock;
  /// The connection that `cancel` breaks, or null.
  std::shared_ptr<const UnixSocket> _socketDescriptor;
  bool _cancelled = false;
  /// For looking at a cancelled request in a debugger; nothing depends on it.
  std::optional<std::string> _reason;
};

/// The map `inFlightRequests`, by `requestIDKey`. Every function may be called from any thread.
class InFlightRequests {
 public:
  /// Files `request` under its id. Replaces a record that is already there; that request keeps
  /// running but can no longer be found.
  void add(const std::shared_ptr<InFlightRequest>& request);

  /// The record filed under the id, or null.
  [[nodiscard]] std::shared_ptr<InFlightRequest> find(const JsonValue& requestID) const;

  /// Removes exactly this record; another one under the same id stays.
  void remove(const InFlightRequest& request) noexcept;

 private:
  mutable std::mutex inFlightLock;
  std::map<std::string, std::shared_ptr<InFlightRequest>> _requests;
};

}  // namespace quillmere
