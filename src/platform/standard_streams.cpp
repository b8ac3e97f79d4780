// To take one line and not a byte more, we must know where the line ends before we read it. So we
// look at what comes next and leave it where it is: we peek at a socket, duplicate a pipe by `tee`
// into a pipe of our own, and read a file at its position. Then we read just the line. We remember
// what we saw of later lines, which saves looking again.
#include "platform/standard_streams.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace quillmere {

namespace {

/// How far to look ahead, in bytes: the default capacity of a pipe.
constexpr std::size_t lookAheadBytes = 65'536;

void waitFor(int descriptor, short events) {
  pollfd entry{.fd = descriptor, .events = events, .revents = 0};
  static_cast<void>(::poll(&entry, 1, -1));
}

/// Repeats `call`, a system call on `descriptor`, through interruptions and, on a non-blocking
/// descriptor, until it is ready. Returns the count, 0 at the end, or -1.
template <typename Call>
ssize_t repeated(int descriptor, short events, Call call) {
  for (;;) {
    const ssize_t count = call();
    if (count >= 0) return count;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      waitFor(descriptor, events);
    } else if (errno != EINTR) {
      return -1;
    }
  }
}

}  // namespace

InputStream::InputStream(int descriptor) : input(descriptor), method(chooseMethod()) {
#ifndef __APPLE__
  std::array<int, 2> ends{};
  if (method == LookAhead::tee) {
    if (::pipe2(ends.data(), O_CLOEXEC) == 0) {
      duplicateOut = Descriptor(ends[0]);
      duplicateIn = Descriptor(ends[1]);
    } else {
      method = LookAhead::none;
    }
  }
#endif
}

InputStream::LookAhead InputStream::chooseMethod() const {
  struct stat status {};
  if (::fstat(input, &status) != 0) return LookAhead::none;
  if (S_ISREG(status.st_mode)) return LookAhead::position;
#ifndef __APPLE__
  if (S_ISFIFO(status.st_mode)) return LookAhead::tee;
#endif
  int type = 0;
  socklen_t length = sizeof type;
  const bool isStream = S_ISSOCK(status.st_mode) &&
                        ::getsockopt(input, SOL_SOCKET, SO_TYPE, &type, &length) == 0 &&
                        type == SOCK_STREAM;
  return isStream ? LookAhead::peek : LookAhead::none;
}

bool InputStream::readSomeUntil(char delimiter, std::size_t most, Bytes& to) {
  if (hasEnded) return false;
  if (seen.empty() && method != LookAhead::none) lookAhead();
  // We read byte by byte what we can't look into, such as a terminal. Seeing nothing need not mean
  // end of input: another reader may have been quicker. A read shows which it is.
  if (seen.empty()) return readSome(1, to);
  const std::string_view wanted = seen.substr(0, most);
  const std::size_t at = wanted.find(delimiter);
  return readSome(at == std::string_view::npos ? wanted.size() : at + 1, to);
}

bool InputStream::readSome(std::size_t most, Bytes& to) {
  if (hasEnded) return false;
  char* const room = to.room(most);
  const ssize_t count = repeated(input, POLLIN, [&] { return ::read(input, room, most); });
  // After a failed read the input stays ended. What comes after it could be the middle of a
  // message, and we would take it for the start of one.
  const std::size_t taken = count > 0 ? static_cast<std::size_t>(count) : 0;
  to.grow(taken);
  seen.remove_prefix(std::min(taken, seen.size()));
  hasEnded = taken == 0;
  return taken > 0;
}

void InputStream::lookAhead() {
  if (!lookAheadBuffer) lookAheadBuffer = std::make_unique_for_overwrite<char[]>(lookAheadBytes);
  long count = -1;
  switch (method) {
    case LookAhead::peek:
      count = lookByPeek();
      break;
    case LookAhead::tee:
      count = lookByTee();
      break;
    case LookAhead::position:
      count = lookByPosition();
      break;
    case LookAhead::none:
      break;
  }
  // Slow is better than nothing: from now on we read byte by byte.
  if (count < 0) method = LookAhead::none;
  seen = {lookAheadBuffer.get(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

long InputStream::lookByPeek() const {
  return repeated(input, POLLIN,
                  [&] { return ::recv(input, lookAheadBuffer.get(), lookAheadBytes, MSG_PEEK); });
}

long InputStream::lookByPosition() const {
  return repeated(input, POLLIN, [&] {
    return ::pread(input, lookAheadBuffer.get(), lookAheadBytes, ::lseek(input, 0, SEEK_CUR));
  });
}

long InputStream::lookByTee() const {
  // We empty our own pipe each time, so there is always room in it and `tee` waits for input only.
#ifdef __APPLE__
  return -1;
#else
  const ssize_t count = repeated(
      input, POLLIN, [&] { return ::tee(input, duplicateIn.number(), lookAheadBytes, 0); });
  if (count <= 0) return count;
  std::size_t have = 0;
  while (have < static_cast<std::size_t>(count)) {
    const ssize_t part = repeated(duplicateOut.number(), POLLIN, [&] {
      return ::read(duplicateOut.number(), &lookAheadBuffer[have], lookAheadBytes - have);
    });
    if (part <= 0) return -1;
    have += static_cast<std::size_t>(part);
  }
  return count;
#endif
}

bool writeAll(int descriptor, std::vector<std::string_view> pieces) {
  // On the stack, since we must not allocate here. A result with more pieces is a large one, for
  // which one more system call costs little.
  std::array<iovec, 64> entries{};
  auto next = pieces.begin();
  for (;;) {
    while (next != pieces.end() && next->empty()) ++next;
    if (next == pieces.end()) return true;
    std::size_t filled = 0;
    for (auto piece = next; piece != pieces.end() && filled < entries.size(); ++piece) {
      entries[filled++] = {const_cast<char*>(piece->data()), piece->size()};
    }
    const ssize_t count = repeated(descriptor, POLLOUT, [&] {
      return ::writev(descriptor, entries.data(), static_cast<int>(filled));
    });
    if (count < 0) return false;
    // The system may take only some of the bytes. We go on from where it stopped.
    for (auto left = static_cast<std::size_t>(count); left > 0;) {
      const std::size_t part = std::min(left, next->size());
      next->remove_prefix(part);
      left -= part;
      if (next->empty()) ++next;
    }
  }
}

}  // namespace quillmere
