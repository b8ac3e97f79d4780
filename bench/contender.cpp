#include "bench/contender.hpp"

namespace quillmere::bench {

std::unique_ptr<Session> Contender::start() const {
  return std::make_unique<Session>(
      ServerProcess::Options{.program = rival.command.front(),
                             .arguments = {rival.command.begin() + 1, rival.command.end()},
                             .home = home,
                             .streams = streams});
}

std::unique_ptr<Session> Contender::startInitialized() const {
  auto session = start();
  session->send(initializeRequest());
  static_cast<void>(session->receive());
  session->send("{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n");
  return session;
}

Session& Contender::session() {
  if (!running) running = startInitialized();
  return *running;
}

std::string initializeRequest() {
  return request(0, "initialize",
                 R"({"protocolVersion":"2025-06-18","capabilities":{},)"
                 R"("clientInfo":{"name":"quillmere-bench","version":"1"}})");
}

std::string request(int id, std::string_view method, std::string_view params) {
  std::string line = R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")";
  line.append(method).append(R"(","params":)").append(params).append("}\n");
  return line;
}

std::string callRequest(int id, std::string_view answer, std::string_view tool,
                        std::string_view arguments) {
  std::string params = R"({"name":"quillmere.)";
  params.append(tool).append(R"(","arguments":{"taskId":")").append(answer);
  params.append(R"(","sessionId":"session-1")").append(arguments).append("}}");
  return request(id, "tools/call", params);
}

std::string withHeader(std::string_view line) {
  line.remove_suffix(1);
  return "Content-Length: " + std::to_string(line.size()) + "\r\n\r\n" + std::string(line);
}

}  // namespace quillmere::bench
