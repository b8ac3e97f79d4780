#include "bench/contender.hpp"

#include <stdexcept>

namespace quillmere::bench {

std::unique_ptr<ServerProcess> Contender::start() const {
  return std::make_unique<ServerProcess>(ServerProcess::Options{
      .program = rival.program, .arguments = rival.arguments, .streams = streams});
}

std::unique_ptr<ServerProcess> Contender::startInitialized() const {
  auto server = start();
  server->send(initializeRequest());
  static_cast<void>(receiveFrom(*server));
  server->send("{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n");
  return server;
}

ServerProcess& Contender::session() {
  if (!running) running = startInitialized();
  return *running;
}

std::string_view receiveFrom(ServerProcess& server) {
  const auto text = server.receiveText();
  if (!text) throw std::runtime_error("A server has closed its output.");
  return *text;
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
