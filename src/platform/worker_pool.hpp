// Threads for requests that wait.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace quillmere {

/// Runs each task at once, on an idle thread or a new one, so that no task ever waits for another
/// to end. A few idle threads wait two seconds for the next task; the others end. Threads are never
/// joined, so a pool must live until the process ends.
class WorkerPool {
 public:
  WorkerPool() = default;
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  ~WorkerPool() = default;

  /// Runs `task` on a worker and returns at once. Returns false, and the task will not run, when no
  /// thread is available. Thread-safe; `task` must not throw.
  [[nodiscard]] bool submit(std::function<void()> task);

 private:
  /// What a thread does: runs `task`, then tasks that come while it is idle.
  void work(std::function<void()> task);

  std::mutex lock;
  std::condition_variable wakes;
  /// Tasks for idle threads, never more than there are idle threads.
  std::deque<std::function<void()>> _tasks;
  std::size_t _idle = 0;
};

}  // namespace quillmere
