#include "bench/session.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "platform/standard_streams.hpp"

namespace quillmere::bench {

namespace {

constexpr std::size_t blockBytes = 1 << 20;

}  // namespace

void Session::send(std::string_view bytes) const {
  if (!writeAll(process.inputDescriptor(), {bytes}))
    throw std::runtime_error("A server reads no more.");
}

void Session::readMore() {
  // What is left is the start of one message: little, or there is nothing in front of it.
  std::memmove(&buffer[0], &buffer[begin], end - begin);
  end -= std::exchange(begin, 0);
  if (end + blockBytes > roomBytes) throw std::runtime_error("An answer is too large.");
  const auto count = ::read(process.outputDescriptor(), &buffer[end], blockBytes);
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
  if (::clock_getcpuclockid(process.processID(), &clock) != 0 ||
      ::clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("A server's processor time can't be read.");
  }
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace quillmere::bench
