// Threads for requests that wait.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace quillmere {

/// Runs tasks on threads of its own: on an idle one when there is one, else on a new one, so that
/// no task ever waits for another to end. A thread that finds nothing to do for a while ends.
/// Threads are never joined: a pool must live until the process ends.
class WorkerPool {
 public:
  WorkerPool() = default;
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  ~WorkerPool() = default;

  /// Runs `task` on a worker and returns at once. Returns false, and the task will not run, when no
  /// thread can be had. One thread at a time; `task` must not throw.
  [[nodiscard]] bool submit(std::function<void()> task);

 private:
  static constexpr std::chrono::seconds idleLife{2};

  bool startThread();
  void work();
  static void* workerMain(void* pool);

  std::mutex lock;
  std::condition_variable taskWaits;
  std::deque<std::function<void()>> _tasks;
  std::size_t _idle = 0;
};

}  // namespace quillmere
