// A whole message through the server, in both dialects, with a desktop app that answers anything:
// each request gets exactly the one response that it must get, with its own id.
#include <map>

#include "compat/dialect.hpp"
#include "fuzz_support.hpp"
#include "peers/channel.hpp"
#include "protocol/message.hpp"
#include "server/server.hpp"

namespace quillmere {
namespace {

/// A server after the handshake, and the reader of its output. Never destroyed: workers use it.
struct Served {
  const Channel channel = makeSocketPair();
  Server server;
  StdinReader reader{channel.readEnd.number()};
  ServerState clientState;

  explicit Served(const Dialect& dialect) : server(channel.writeEnd.number(), dialect) {
    demand(processPayload(bytesOf(R"({"jsonrpc":"2.0","id":0,"method":"initialize"})"), server));
    demand(nextID() == "0");
  }

  /// The id of the next response, as text.
  std::string nextID() {
    const auto message = parseMessage(*readNextPayload(reader, clientState));
    const JsonObject response = message->object();
    demand(*response.findString("jsonrpc") == "2.0");
    demand(response.contains("result") != response.contains("error"));
    return std::string(response.find("id")->text());
  }
};

/// The id of a message's response, if the message is a request for a worker.
std::optional<std::string> workerRequestID(std::string_view payload, const Dialect& dialect) {
  try {
    const auto message = parseMessage(bytesOf(payload));
    const auto id = requestIDOf(message->object());
    const auto method = message->object().findString("method");
    const Method* row = method ? findMethod(method->view(), dialect) : nullptr;
    if (!id || row == nullptr || row->runsOn != Method::RunsOn::worker) return std::nullopt;
    return std::string(id->text());
  } catch (...) {
    return std::nullopt;
  }
}

void check(Served& served, std::string_view payload) {
  static std::uint64_t round = 0;
  const std::string fence = "\"fence " + std::to_string(++round) + "\"";
  std::map<std::string, int> expected = {{fence, 1}};
  const auto worker = workerRequestID(payload, served.server.context.dialect);
  if (worker) ++expected[*worker];
  static_cast<void>(processPayload(bytesOf(payload), served.server));
  static_cast<void>(processPayload(
      bytesOf(R"({"jsonrpc":"2.0","method":"ping","id":)" + fence + "}"), served.server));

  // A response of the main thread comes before the fence, a worker's response at any time.
  int fromMainThread = 0;
  while (!expected.empty()) {
    const auto place = expected.find(served.nextID());
    if (place == expected.end()) {
      demand(!worker && ++fromMainThread == 1);
    } else if (--place->second == 0) {
      expected.erase(place);
    }
  }
}

}  // namespace
}  // namespace quillmere

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  // The message, a NUL, and the app response.
  const std::string_view input = textOf(data, size);
  const std::size_t split = std::min(input.find('\0'), input.size());
  AnsweringApp::instance().setAnswer(std::string(input.substr(std::min(split + 1, input.size()))));
  static Served* const programs[] = {new Served(serverDialect), new Served(compatDialect)};
  for (Served* const served : programs) check(*served, input.substr(0, split));
  return 0;
}
