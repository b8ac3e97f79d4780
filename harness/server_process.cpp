#include "harness/server_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "harness/patience.hpp"
#include "harness/system.hpp"
#include "platform/standard_streams.hpp"
#include "protocol/message.hpp"

namespace quillmere {

namespace {

Channel makeChannel(ChildStreams kind) {
  return kind == ChildStreams::pipes ? makePipe() : makeSocketPair();
}

std::vector<std::string> environmentWithHome(const std::string& home) {
  const std::string assignment = std::string(homeVariable) + "=";
  std::vector<std::string> variables;
  for (char** variable = environmentVariables(); *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with(assignment)) variables.emplace_back(*variable);
  }
  variables.push_back(assignment + home);
  return variables;
}

bool waitReadable(int descriptor, std::chrono::milliseconds patience) {
  pollfd entry{.fd = descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&entry, 1, static_cast<int>(patience.count())) > 0;
}

}  // namespace

ServerProcess::ServerProcess(const Options& options) {
  Channel toChild = makeChannel(options.streams);
  Channel fromChild = makeChannel(options.streams);
  if (options.nonBlocking) {
    ::fcntl(toChild.readEnd.number(), F_SETFL, O_NONBLOCK);
    ::fcntl(fromChild.writeEnd.number(), F_SETFL, O_NONBLOCK);
  }

  std::vector<std::string> arguments = {options.program};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  child =
      startProgram(std::move(arguments), environmentWithHome(options.home),
                   toChild.readEnd.number(), fromChild.writeEnd.number(), options.diesWithParent);
  input = std::move(toChild.writeEnd);
  output = std::move(fromChild.readEnd);
  reader.emplace(output.number());
}

ServerProcess::~ServerProcess() {
  if (exitStatus) return;
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

bool ServerProcess::send(std::string_view bytes) {
  const Waiting waiting("the server to read");
  return writeAll(input.number(), {bytes});
}

bool ServerProcess::sendMessage(const JsonText& message) {
  return send(message.str() + "\n");
}

std::shared_ptr<const JsonDocument> ServerProcess::receive(std::chrono::milliseconds patience) {
  const Waiting waiting("a message from the server");
  if (!waitReadable(output.number(), patience)) return nullptr;
  auto payload = readNextPayload(*reader, framing);
  return payload ? parseMessage(std::move(*payload)) : nullptr;
}

std::optional<int> ServerProcess::waitForExit(std::chrono::milliseconds patience) {
  if (exitStatus) return exitStatus;
  const Waiting waiting("the server to end");
  if (patience != forever && !endsWithin(child, patience)) return std::nullopt;
  int status = 0;
  ::waitpid(child, &status, 0);
  exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return exitStatus;
}

}  // namespace quillmere
