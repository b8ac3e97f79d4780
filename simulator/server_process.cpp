#include "simulator/server_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <utility>

#include "platform/standard_streams.hpp"
#include "protocol/message.hpp"
#include "simulator/system.hpp"

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

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
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
  std::vector<std::string> environment = environmentWithHome(options.home);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, toChild.readEnd.number(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fromChild.writeEnd.number(), STDOUT_FILENO);
  // What a parent of ours ignores, SIGHUP under nohup or SIGINT in the background, is not ignored
  // by the server for that.
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &all);
  short flags = POSIX_SPAWN_SETSIGDEF;
#ifdef __APPLE__
  // There a descriptor is open for a moment before it is marked as closed on exec, and another
  // thread may start a program just then.
  flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
  posix_spawn_file_actions_addinherit_np(&actions, STDERR_FILENO);
#endif
  posix_spawnattr_setflags(&attributes, flags);
  const int error = ::posix_spawn(&child, options.program.c_str(), &actions, &attributes,
                                  pointersTo(arguments).data(), pointersTo(environment).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), options.program);

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
  return writeAll(input.number(), {bytes});
}

bool ServerProcess::sendMessage(const JsonText& message) {
  return writeAll(input.number(), {message.str(), "\n"});
}

std::shared_ptr<const JsonDocument> ServerProcess::receive(std::chrono::milliseconds patience) {
  if (!waitReadable(output.number(), patience)) return nullptr;
  auto payload = readNextPayload(*reader, framing);
  return payload ? parseMessage(std::move(*payload)) : nullptr;
}

std::optional<int> ServerProcess::waitForExit(std::chrono::milliseconds patience) {
  if (exitStatus) return exitStatus;
  if (patience != forever && !endsWithin(child, patience)) return std::nullopt;
  int status = 0;
  ::waitpid(child, &status, 0);
  exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return exitStatus;
}

}  // namespace quillmere
