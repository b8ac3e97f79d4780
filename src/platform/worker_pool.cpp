#include "platform/worker_pool.hpp"

#include <pthread.h>

#include <utility>

namespace quillmere {

namespace {

/// Enough for JSON nested as deep as the parser allows, sanitizers' larger frames included, and
/// small enough that thousands of blocked calls fit into any address space.
constexpr std::size_t stackBytes = 1'048'576;

}  // namespace

bool WorkerPool::submit(std::function<void()> task) {
  bool isThreadIdle = false;
  {
    const std::lock_guard hold(lock);
    _tasks.push_back(std::move(task));
    // Each task that waits has an idle thread of its own.
    isThreadIdle = _tasks.size() <= _idle;
  }
  if (isThreadIdle) {
    // With the lock free, so that the thread does not wake up only to wait for it.
    taskWaits.notify_one();
    return true;
  }
  if (startThread()) return true;

  const std::lock_guard hold(lock);
  // Tasks leave at the front and only this thread adds: what is still there ends with ours. If none
  // is, a worker that had just become idle has taken it.
  if (_tasks.empty()) return true;
  _tasks.pop_back();
  return false;
}

bool WorkerPool::startThread() {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setstacksize(&attributes, stackBytes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread{};
  const bool started = pthread_create(&thread, &attributes, workerMain, this) == 0;
  pthread_attr_destroy(&attributes);
  return started;
}

void* WorkerPool::workerMain(void* pool) {
  static_cast<WorkerPool*>(pool)->work();
  return nullptr;
}

void WorkerPool::work() {
  std::unique_lock hold(lock);
  for (;;) {
    if (_tasks.empty()) {
      ++_idle;
      const bool found = taskWaits.wait_for(hold, idleLife, [this] { return !_tasks.empty(); });
      --_idle;
      if (!found) break;
    }
    auto task = std::move(_tasks.front());
    _tasks.pop_front();
    hold.unlock();
    task();
    task = nullptr;
    hold.lock();
  }
}

}  // namespace quillmere
