// The AI client of the demo: talks to the real server, tells a person what it does, and checks what
// comes back.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "peers/server_process.hpp"

namespace quillmere::demo {

/// Something did not come back as it must.
class DemoFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What came back, and the document that holds it.
struct Answer {
  std::shared_ptr<const JsonDocument> document;
  JsonObject object;
};

/// Prints to standard output. Every function throws `DemoFailure` when the server's response is
/// missing or has the wrong id. One thread.
class DemoClient {
 public:
  /// Starts the server. Throws `std::system_error` when that fails.
  DemoClient(const std::string& serverProgram, bool isColoured);

  /// Begins a step of the story.
  void step(std::string_view sentence);
  /// Prints a line below the step: a label and a text.
  void say(std::string_view label, std::string_view text) const;

  /// Sends a request and returns the response, `result` or `error`.
  [[nodiscard]] Answer request(std::string_view method, const JsonText& params);
  void notify(std::string_view method, const JsonText& params);

  /// Calls a tool, prints the call and the summary of its result, and returns the structured
  /// content. Also throws `DemoFailure` when `isError` is not as expected.
  Answer call(std::string_view tool, const JsonText& arguments, bool isErrorWanted = false);
  /// Calls a tool with arguments that the server itself must refuse.
  void callBadly(std::string_view tool, const JsonText& arguments);
  /// Sends a call without waiting for its response; returns its id.
  std::int64_t beginCall(std::string_view tool, const JsonText& arguments);

  /// Ends the server's input. Returns whether the server then ends with status 0 and without more
  /// output.
  [[nodiscard]] bool finish();

  [[nodiscard]] int stepCount() const { return steps; }

 private:
  std::int64_t send(std::string_view method, const JsonText& params);
  Answer receiveResponse(std::int64_t id);

  ServerProcess server;
  const bool isColoured;
  std::int64_t lastID = 0;
  int steps = 0;
};

/// Throws `DemoFailure` with `what` unless `isTrue`.
void expect(bool isTrue, std::string_view what);

}  // namespace quillmere::demo
