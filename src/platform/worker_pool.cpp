#include "platform/worker_pool.hpp"

#include <utility>

#include "platform/detached_thread.hpp"

namespace quillmere {

namespace {

/// Enough for JSON nested as deep as the parser allows, even with the larger frames of sanitizers,
/// and small enough that thousands of blocked calls fit into a 64-bit address space.
constexpr std::size_t stackBytes = 1'048'576;

constexpr std::chrono::seconds idleLife{2};
/// Idle threads take turns, so none of them ends while calls keep coming. So only a few may stay
/// after a burst.
constexpr std::size_t mostIdle = 32;

}  // namespace

bool WorkerPool::submit(std::function<void()> task) {
  std::unique_lock hold(lock);
  if (_tasks.size() < _idle) {
    _tasks.push_back(std::move(task));
    hold.unlock();
    // After unlocking, so that the thread does not wake up only to wait for the lock.
    wakes.notify_one();
    return true;
  }
  hold.unlock();
  return startDetachedThread(stackBytes,
                             [this, task = std::move(task)]() mutable { work(std::move(task)); });
}

void WorkerPool::work(std::function<void()> task) {
  for (;;) {
    task();
    // Release what the task holds before taking the lock: this may free a request's whole memory.
    task = nullptr;
    std::unique_lock hold(lock);
    if (_idle >= mostIdle) return;
    ++_idle;
    // A task may rely on any idle thread, even one that has timed out and is still waiting for the
    // lock. So we check for tasks last.
    const bool hasTask = wakes.wait_for(hold, idleLife, [&] { return !_tasks.empty(); });
    --_idle;
    if (!hasTask) return;
    task = std::move(_tasks.front());
    _tasks.pop_front();
  }
}

}  // namespace quillmere
