#include "harness/server_process.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <utility>

#include "harness/patience.hpp"
#include "harness/system.hpp"

namespace quillmere {

namespace {

constexpr std::size_t firstRoom = 64 << 10;

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

}  // namespace

ServerProcess::ServerProcess(const Options& options)
    : name(std::filesystem::path(options.program).filename()),
      buffer(std::make_unique_for_overwrite<char[]>(firstRoom)),
      room(firstRoom) {
  // A program that has ended is for `send` to report.
  std::signal(SIGPIPE, SIG_IGN);
  Channel toChild = makeChannel(options.streams);
  Channel fromChild = makeChannel(options.streams);
  if (options.nonBlocking) {
    ::fcntl(toChild.readEnd.number(), F_SETFL, O_NONBLOCK);
    ::fcntl(fromChild.writeEnd.number(), F_SETFL, O_NONBLOCK);
  }
  ::fcntl(toChild.writeEnd.number(), F_SETFL, O_NONBLOCK);
  std::vector<std::string> arguments = {options.program};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  child =
      startProgram(std::move(arguments), environmentWithHome(options.home),
                   toChild.readEnd.number(), fromChild.writeEnd.number(), options.diesWithParent);
  input = std::move(toChild.writeEnd);
  output = std::move(fromChild.readEnd);
}

ServerProcess::~ServerProcess() {
  if (exitStatus) return;
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

bool ServerProcess::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(input.number(), bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      waitUntilWritable(input.number(), name + " to read");
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

void ServerProcess::waitForOutput() const {
  waitUntilReadable(output.number(), "a message from " + name);
}

bool ServerProcess::readMore() {
  // What is left is the start of one message: little, or there is nothing in front of it.
  std::memmove(&buffer[0], &buffer[begin], end - begin);
  end -= std::exchange(begin, 0);
  if (end == room) {
    auto larger = std::make_unique_for_overwrite<char[]>(room *= 2);
    std::memcpy(&larger[0], &buffer[0], end);
    buffer = std::move(larger);
  }
  waitForOutput();
  const auto count = ::read(output.number(), &buffer[end], room - end);
  if (count <= 0) return false;
  end += static_cast<std::size_t>(count);
  return true;
}

std::string_view ServerProcess::take(std::size_t size) {
  const std::string_view taken = waiting().substr(0, size);
  begin += taken.size();
  return taken;
}

std::string_view ServerProcess::receiveBytes(std::size_t size) {
  while (end - begin < size && readMore()) {
  }
  return take(size);
}

std::optional<std::string_view> ServerProcess::receiveText() {
  constexpr std::string_view header = "Content-Length: ";
  const auto receivePast = [this](std::string_view mark) {
    for (std::size_t seen = 0;;) {
      const std::size_t at = waiting().find(mark, seen);
      if (at != std::string_view::npos) {
        const std::string_view text = take(at + mark.size());
        return text.substr(0, at);
      }
      seen = waiting().size() - std::min(waiting().size(), mark.size() - 1);
      if (!readMore()) return take(waiting().size());
    }
  };
  if (!hasMore() && !readMore()) return std::nullopt;
  if (buffer[begin] != header.front()) return receivePast("\n");
  std::size_t length = 0;
  const std::string_view block = receivePast("\r\n\r\n");
  const std::string_view value = block.substr(std::min(block.size(), header.size()));
  std::from_chars(value.data(), value.data() + value.size(), length);
  return receiveBytes(length);
}

std::shared_ptr<const JsonDocument> ServerProcess::receive() {
  const auto text = receiveText();
  return text ? parseJson(*text) : nullptr;
}

int ServerProcess::waitForExit() {
  if (!exitStatus) {
    if (!endsWithin(child, patience())) throw WaitedInVain(name + " to end");
    int status = 0;
    ::waitpid(child, &status, 0);
    exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return *exitStatus;
}

}  // namespace quillmere
