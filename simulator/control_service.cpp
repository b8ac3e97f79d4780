#include "simulator/control_service.hpp"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "control/control_frame.hpp"
#include "json/document.hpp"
#include "platform/base64.hpp"
#include "platform/buffer.hpp"
#include "platform/standard_streams.hpp"
#include "simulator/drawing.hpp"

namespace quillmere::simulator {

namespace {

/// The bytes are not a control request; we close the connection without a response.
class MalformedFrame : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads until `bytes` holds `count` bytes.
void fill(InputStream& input, std::size_t count, Bytes& bytes) {
  while (bytes.size() < count) {
    if (!input.readSome(count - bytes.size(), bytes)) throw MalformedFrame("it ends too early");
  }
}

/// The request of a connection; null when the client closed it without a byte.
std::shared_ptr<const JsonDocument> readRequest(const Descriptor& connection) {
  InputStream input(connection.number());
  Bytes prefix;
  if (!input.readSome(1, prefix)) return nullptr;
  fill(input, controlPrefixBytes, prefix);
  const std::uint32_t length = controlBodyLength(viewOf(prefix));
  if (length == 0 || length > maxControlRequestBytes) {
    throw MalformedFrame("its length is " + std::to_string(length));
  }
  try {
    Bytes body;
    fill(input, length, body);
    auto request = parseJson(std::move(body));
    if (request->root().asObject()) return request;
  } catch (const JsonError&) {
    throw MalformedFrame("its body is not JSON");
  }
  throw MalformedFrame("its body is not a JSON object");
}

/// Waits until the time is up or the client hangs up. Returns whether the client is still there.
bool waitWhileConnected(const Descriptor& connection,
                        std::optional<std::chrono::milliseconds> time) {
  pollfd entry{.fd = connection.number(), .events = 0, .revents = 0};
  return ::poll(&entry, 1, time ? static_cast<int>(time->count()) : -1) == 0;
}

std::string timeOfDay() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const auto whole = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  const auto fraction = std::chrono::floor<std::chrono::milliseconds>(sinceEpoch - whole);
  const auto seconds = static_cast<std::time_t>(whole.count());
  std::tm local{};
  ::localtime_r(&seconds, &local);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min,
                local.tm_sec, static_cast<int>(fraction.count()));
  return text.data();
}

/// The request's command, if it is a known one; anything else that a client sends does not belong
/// in a log.
std::string commandOf(const JsonObject& request) {
  const auto command = request.findString("command");
  const bool isKnown = command && isCommand(command->view());
  return std::string(isKnown ? command->view() : "unknown command");
}

std::string outcomeOf(const JsonText& text) {
  const auto document = parseJson(text.str());
  const JsonObject answer = document->object();
  if (answer.findBoolean("ok") == true) return "ok";
  const auto error = answer.findObject("error");
  const auto code = error ? error->findString("code") : std::nullopt;
  return "refused: " + std::string(code ? code->view() : "no reason given");
}

JsonText imageJson(const View& view) {
  return {{"mimeType", "image/png"},
          {"width", mirror.width * view.scale},
          {"height", mirror.height * view.scale},
          {"base64", base64(pngOf(view))}};
}

}  // namespace

ControlService::ControlService(const SimulatorOptions& options)
    : faults(options.faults), isQuiet(options.isQuiet), _world(makeWorld(options.scale)) {}

void ControlService::serve(const UnixListener& listener) {
  while (auto accepted = listener.accept()) {
    // A task must be copyable.
    const auto connection = std::make_shared<const Descriptor>(std::move(*accepted));
    if (!workers.submit([this, connection] { answerConnection(*connection); })) {
      log("connection", "closed: no thread is available");
    }
  }
}

void ControlService::answerConnection(const Descriptor& connection) {
  std::string command = "connection";
  try {
    const auto request = readRequest(connection);
    if (!request) return;
    command = commandOf(request->object());
    const auto answer = answerTo(request->object(), connection);
    log(command, answer ? sendAnswer(*answer, connection) : "the client hung up");
  } catch (const MalformedFrame& malformed) {
    log("malformed frame", malformed.what());
  } catch (const std::exception& failure) {
    log(command, failure.what());
  }
}

std::optional<JsonText> ControlService::answerTo(const JsonObject& request,
                                                 const Descriptor& connection) {
  if (faults.isSilent) {
    // Log it now: the client may hang up much later, and people want to see that the call came.
    log(commandOf(request), "unanswered on purpose");
    waitWhileConnected(connection, std::nullopt);
    return std::nullopt;
  }
  if (faults.failingCommands.contains(commandOf(request))) {
    const std::lock_guard hold(worldLock);
    return failedAnswer(_world, request);
  }
  Call call{.request = request};
  for (;;) {
    Turn turn;
    {
      const std::lock_guard hold(worldLock);
      turn = takeTurn(_world, call, now());
    }
    if (turn.answer) {
      if (turn.picture) turn.answer->set("image", imageJson(*turn.picture));
      return std::move(turn.answer);
    }
    if (!waitWhileConnected(connection, turn.askAgainIn)) return std::nullopt;
  }
}

std::string ControlService::sendAnswer(const JsonText& answer, const Descriptor& connection) const {
  if (faults.delay.count() > 0 && !waitWhileConnected(connection, faults.delay)) {
    return "the client hung up";
  }
  const std::string frame = controlFrame(answer.str());
  std::string outcome = outcomeOf(answer);
  std::size_t sent = frame.size();
  if (faults.truncates) {
    sent = controlPrefixBytes + (frame.size() - controlPrefixBytes) / 2;
    outcome += ", then cut off on purpose";
  }
  if (faults.dropAfter && *faults.dropAfter < sent) {
    sent = *faults.dropAfter;
    outcome += ", then dropped on purpose";
  }
  if (!writeAll(connection.number(), {std::string_view(frame).substr(0, sent)})) {
    return "the client hung up";
  }
  return outcome;
}

WorldTime ControlService::now() const {
  return std::chrono::duration_cast<WorldTime>(std::chrono::steady_clock::now() - begin);
}

void ControlService::log(std::string_view what, std::string_view outcome) {
  if (isQuiet) return;
  std::string line = timeOfDay() + "  ";
  line += what;
  line.append(what.size() < 16 ? 16 - what.size() : 0, ' ');
  line += "  ";
  line += outcome;
  const std::lock_guard hold(logLock);
  // Nobody may be reading the log any more; the service goes on.
  static_cast<void>(writeAll(STDERR_FILENO, {line, "\n"}));
}

}  // namespace quillmere::simulator
