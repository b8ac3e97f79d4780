// Threads for requests that wait.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace quillmere {

/// Runs tasks on threads of its own: on the one that became idle last, or on a new one when none is
/// idle, so that no task ever waits for another to end. A thread that finds nothing to do for a
/// while ends. Threads are never joined: a pool must live until the process ends.
class WorkerPool {
 public:
  WorkerPool() = default;
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  ~WorkerPool() = default;

  /// Runs `task` on a worker and returns at once. Returns false, and the task will not run, when no
  /// thread is available. One thread at a time; `task` must not throw.
  [[nodiscard]] bool submit(std::function<void()> task);

 private:
  static constexpr std::chrono::seconds idleLife{2};

  /// What belongs to one thread. Never freed, since `submit` may still be waking the thread while
  /// it ends; the next thread takes it over.
  struct Worker {
    WorkerPool& pool;
    std::condition_variable wakes = {};
    bool _isCalled = false;
    /// Its neighbours among the idle workers; those below have been idle for longer.
    Worker* _above = nullptr;
    Worker* _below = nullptr;
  };

  bool startThread();
  void work(Worker& self);
  /// Sleeps until there may be a task; false when it has slept through its idle life.
  bool isCalledInTime(Worker& self, std::unique_lock<std::mutex>& hold);
  /// With the lock held.
  void takeOut(const Worker& idle);
  static void* workerMain(void* worker);

  std::mutex lock;
  std::deque<std::function<void()>> _tasks;
  /// How many workers were called or started and have not yet looked for a task.
  std::size_t _coming = 0;
  Worker* _lastIdle = nullptr;
  /// Those whose threads have ended, chained by `_below`.
  Worker* _ended = nullptr;
};

}  // namespace quillmere
