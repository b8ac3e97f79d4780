// A library to preload into the server: its functions replace the system's functions of the same
// names and fail when a test orders it.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "support/fault_order.hpp"

namespace {

using quillmere::Call;
using quillmere::FaultOrder;

/// Null until this library has started, and always null in a program that is not under test.
FaultOrder* order = nullptr;

enum class Fate { works, isShort, isNothing, fails };

/// Decides one call, and sets `errno` if it must fail.
Fate fateOf(Call call) {
  if (order == nullptr || order->call != call) return Fate::works;
  const int past = order->calls++ - order->before;
  if (past < 0 || past >= order->inARow) return Fate::works;
  ++order->failed;
  if (order->error == 0) return Fate::isShort;
  if (order->error < 0) return Fate::isNothing;
  errno = order->error;
  return Fate::fails;
}

bool fails(Call call) {
  return fateOf(call) == Fate::fails;
}

template <typename Function>
Function* systems(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

[[gnu::constructor]] void start() {
  const char* path = ::getenv(quillmere::faultOrderVariable);
  const int file = path != nullptr ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) return;
  void* memory = ::mmap(nullptr, sizeof *order, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory != MAP_FAILED) order = static_cast<FaultOrder*>(memory);
  ::close(file);
}

/// Runs `transfer` on as many of the `size` bytes as allowed.
template <typename Transfer>
ssize_t transferred(Call call, std::size_t size, Transfer transfer) {
  switch (fateOf(call)) {
    case Fate::works:
      return transfer(size);
    case Fate::isShort:
      return transfer((size + 1) / 2);
    case Fate::isNothing:
      return 0;
    case Fate::fails:
      break;
  }
  return -1;
}

bool isFile(int descriptor) {
  static const auto system = systems<decltype(fstat)>("fstat");
  struct stat status {};
  return system(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

// The system's headers use other names for the parameters.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

ssize_t read(int descriptor, void* to, size_t size) {
  static const auto system = systems<decltype(read)>("read");
  const Call call = descriptor == STDIN_FILENO ? Call::readInput
                    : isFile(descriptor)       ? Call::readFile
                                               : Call::readElsewhere;
  return transferred(call, size, [&](std::size_t most) { return system(descriptor, to, most); });
}

ssize_t pread(int descriptor, void* to, size_t size, off_t position) {
  static const auto system = systems<decltype(pread)>("pread");
  return transferred(Call::readAtPosition, size,
                     [&](std::size_t most) { return system(descriptor, to, most, position); });
}

ssize_t recv(int descriptor, void* to, size_t size, int flags) {
  static const auto system = systems<decltype(recv)>("recv");
  return transferred((flags & MSG_PEEK) != 0 ? Call::peek : Call::receive, size,
                     [&](std::size_t most) { return system(descriptor, to, most, flags); });
}

ssize_t send(int descriptor, const void* from, size_t size, int flags) {
  static const auto system = systems<decltype(send)>("send");
  return transferred(Call::send, size,
                     [&](std::size_t most) { return system(descriptor, from, most, flags); });
}

ssize_t tee(int from, int to, size_t size, unsigned flags) {
  static const auto system = systems<decltype(tee)>("tee");
  return transferred(Call::tee, size,
                     [&](std::size_t most) { return system(from, to, most, flags); });
}

ssize_t writev(int descriptor, const iovec* pieces, int count) {
  static const auto system = systems<decltype(writev)>("writev");
  switch (fateOf(Call::write)) {
    case Fate::works:
      return system(descriptor, pieces, count);
    case Fate::isShort:
      return ::write(descriptor, pieces->iov_base, (pieces->iov_len + 1) / 2);
    case Fate::isNothing:
    case Fate::fails:
      break;
  }
  return -1;
}

int socket(int domain, int type, int protocol) {
  static const auto system = systems<decltype(socket)>("socket");
  return fails(Call::socket) ? -1 : system(domain, type, protocol);
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
  static const auto system = systems<decltype(connect)>("connect");
  if (fails(Call::connect)) return -1;
  const int result = system(descriptor, address, length);
  if (result != 0 || order == nullptr || !order->connectPends) return result;
  errno = EINPROGRESS;
  return -1;
}

int poll(pollfd* entries, nfds_t count, int patience) {
  static const auto system = systems<decltype(poll)>("poll");
  const Fate fate = fateOf(Call::poll);
  if (fate == Fate::works) return system(entries, count, patience);
  return fate == Fate::fails ? -1 : 0;
}

int getsockopt(int descriptor, int level, int name, void* value, socklen_t* length) {
  static const auto system = systems<decltype(getsockopt)>("getsockopt");
  if (fails(Call::getSocketOption)) return -1;
  const int result = system(descriptor, level, name, value, length);
  if (name == SO_ERROR && fails(Call::connectOutcome)) *static_cast<int*>(value) = errno;
  return result;
}

int lstat(const char* path, struct stat* status) {
  static const auto system = systems<decltype(lstat)>("lstat");
  return fails(Call::linkStatus) ? -1 : system(path, status);
}

int fstat(int descriptor, struct stat* status) {
  static const auto system = systems<decltype(fstat)>("fstat");
  const bool isFaulty = descriptor != STDIN_FILENO && fails(Call::fileStatus);
  return isFaulty ? -1 : system(descriptor, status);
}

int open(const char* path, int flags, ...) {
  static const auto system = systems<decltype(open)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return fails(Call::open) ? -1 : system(path, flags, mode);
}

int pipe2(int* ends, int flags) {
  static const auto system = systems<decltype(pipe2)>("pipe2");
  return fails(Call::pipe) ? -1 : system(ends, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  static const auto system = systems<decltype(pthread_create)>("pthread_create");
  return fails(Call::startThread) ? errno : system(thread, attributes, start, argument);
}

void* malloc(size_t size) {
  static const auto system = systems<decltype(malloc)>("malloc");
  return fails(Call::allocate) ? nullptr : system(size);
}

void* calloc(size_t count, size_t size) {
  static const auto system = systems<decltype(calloc)>("calloc");
  return fails(Call::allocate) ? nullptr : system(count, size);
}

void* realloc(void* block, size_t size) {
  static const auto system = systems<decltype(realloc)>("realloc");
  return fails(Call::allocate) ? nullptr : system(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
  static const auto system = systems<decltype(aligned_alloc)>("aligned_alloc");
  return fails(Call::allocate) ? nullptr : system(alignment, size);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
