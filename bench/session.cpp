#include "bench/session.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/standard_streams.hpp"

namespace quillmere::bench {

namespace {

constexpr std::size_t roomBytes = 64 << 20;
constexpr std::size_t blockBytes = 1 << 20;

std::pair<Descriptor, Descriptor> channel(Streams streams) {
  std::array<int, 2> ends{};
  const int failed = streams == Streams::pipes
                         ? ::pipe2(ends.data(), O_CLOEXEC)
                         : ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
  if (failed != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// What a child needs to become a program.
struct Beginning {
  char* const* arguments;
  char* const* environment;
  int input;
  int output;
  /// Written by the child when it can't.
  int error = 0;
};

int becomeProgram(void* of) {
  Beginning& child = *static_cast<Beginning*>(of);
  // A server that hangs does not outlive us.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(child.input, STDIN_FILENO);
  ::dup2(child.output, STDOUT_FILENO);
  ::execve(child.arguments[0], child.arguments, child.environment);
  child.error = errno;
  ::_exit(127);
}

/// Starts a program in our own memory, as `posix_spawn` does, which can't tie it to our life: a
/// fork would add the copying of our pages to each start that is measured.
pid_t start(Beginning& child) {
  alignas(16) std::array<char, 16'384> stack;
  return ::clone(becomeProgram, stack.data() + stack.size(), CLONE_VM | CLONE_VFORK | SIGCHLD,
                 &child);
}

/// The number behind `label` in a file of /proc, in KiB.
double kibibytesIn(const std::string& path, std::string_view label) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(label)) return std::stod(line.substr(label.size()));
  }
  throw std::runtime_error(path + " does not tell " + std::string(label));
}

}  // namespace

Session::Session(const std::vector<std::string>& command, const std::string& home, Streams streams)
    : buffer(std::make_unique_for_overwrite<char[]>(roomBytes)) {
  auto [childInput, ourOutput] = channel(streams);
  auto [ourInput, childOutput] = channel(streams);
  std::vector<std::string> arguments = command;
  std::vector<std::string> environment = {"HOME=" + home, "PATH=/usr/bin:/bin"};
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);
  Beginning beginning{argumentPointers.data(), environmentPointers.data(), childInput.number(),
                      childOutput.number()};
  child = start(beginning);
  if (child < 0) throw std::system_error(errno, std::generic_category(), "clone");
  if (beginning.error != 0) {
    ::waitpid(child, nullptr, 0);
    throw std::system_error(beginning.error, std::generic_category(), command.front());
  }
  input = std::move(ourOutput);
  output = std::move(ourInput);
}

Session::~Session() {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

void Session::send(std::string_view bytes) const {
  if (!writeAll(input.number(), {bytes})) throw std::runtime_error("A server reads no more.");
}

void Session::readMore() {
  // What is left is the start of one message: little, or there is nothing in front of it.
  std::memmove(&buffer[0], &buffer[begin], end - begin);
  end -= std::exchange(begin, 0);
  if (end + blockBytes > roomBytes) throw std::runtime_error("An answer is too large.");
  const auto count = ::read(output.number(), &buffer[end], blockBytes);
  if (count <= 0) throw std::runtime_error("A server has closed its output.");
  end += static_cast<std::size_t>(count);
}

std::string_view Session::receive() {
  constexpr std::string_view header = "Content-Length: ";
  const auto readPast = [&](std::string_view mark) {
    for (std::size_t seen = 0;;) {
      const std::string_view waiting(&buffer[begin], end - begin);
      const std::size_t at = waiting.find(mark, seen);
      if (at != std::string_view::npos) {
        begin += at + mark.size();
        return waiting.substr(0, at);
      }
      seen = waiting.size() - std::min(waiting.size(), mark.size() - 1);
      readMore();
    }
  };
  if (begin == end) readMore();
  if (buffer[begin] != header.front()) return readPast("\n");

  const std::string_view block = readPast("\r\n\r\n");
  std::size_t length = 0;
  std::from_chars(block.data() + header.size(), block.data() + block.size(), length);
  while (end - begin < length) readMore();
  begin += length;
  return {&buffer[begin - length], length};
}

std::chrono::nanoseconds Session::processorTime() const {
  clockid_t clock{};
  timespec time{};
  if (::clock_getcpuclockid(child, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("A server's processor time can't be read.");
  }
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

double Session::bytesOf(Memory memory) const {
  const std::string folder = "/proc/" + std::to_string(child);
  const double kibibytes =
      memory == Memory::peak
          ? kibibytesIn(folder + "/status", "VmHWM:")
          : kibibytesIn(folder + "/smaps_rollup", memory == Memory::share ? "Pss:" : "Rss:");
  return 1024 * kibibytes;
}

}  // namespace quillmere::bench
