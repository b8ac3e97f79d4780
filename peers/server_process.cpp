#include "peers/server_process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "peers/channel.hpp"
#include "peers/patience.hpp"

#ifdef __APPLE__
extern char** environ;
#endif

namespace quillmere {

namespace {

constexpr std::size_t firstRoom = 64 << 10;

Channel makeChannel(ChildStreams kind) {
  return kind == ChildStreams::pipes ? makePipe() : makeSocketPair();
}

/// Starts the program at `arguments[0]` with these standard streams, no other descriptor except
/// standard error, and default actions for all signals: otherwise it would ignore a signal that our
/// parent ignores, such as SIGHUP under nohup. Throws `std::system_error`.
pid_t startProgram(std::vector<std::string> arguments, int input, int output) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
#ifdef __APPLE__
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT);
  posix_spawn_file_actions_addinherit_np(&actions, STDERR_FILENO);
#else
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
#endif
  pid_t child = -1;
  const int error =
      ::posix_spawn(&child, pointers[0], &actions, &attributes, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw std::system_error(error, std::generic_category(), arguments[0]);
  return child;
}

}  // namespace

ServerProcess::ServerProcess(const Options& options)
    : name(std::filesystem::path(options.program).filename()),
      buffer(std::make_unique_for_overwrite<char[]>(firstRoom)),
      room(firstRoom) {
  // If the program has ended, `send` reports it.
  std::signal(SIGPIPE, SIG_IGN);
  Channel toChild = makeChannel(options.streams);
  Channel fromChild = makeChannel(options.streams);
  ::fcntl(toChild.writeEnd.number(), F_SETFL, O_NONBLOCK);
  std::vector<std::string> arguments = {options.program};
  arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
  child = startProgram(std::move(arguments), toChild.readEnd.number(), fromChild.writeEnd.number());
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
  // The rest is the start of one message. It is short, or nothing comes before it.
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
    int status = 0;
    waitUntil(name + " to end", [&] { return ::waitpid(child, &status, WNOHANG) == child; });
    exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return *exitStatus;
}

}  // namespace quillmere
