// Idle workers are a stack: the one that slept last is called first, and those at its bottom get
// their rest and end. A task is only pushed and a worker only called; which worker takes which task
// is settled when one of them finds the lock free.
#include "platform/worker_pool.hpp"

#include <pthread.h>
#ifdef __APPLE__
#include <pthread/qos.h>
#endif

#include <new>
#include <utility>

namespace quillmere {

namespace {

/// Enough for JSON nested as deep as the parser allows, sanitizers' larger frames included, and
/// small enough that thousands of blocked calls fit into a 64-bit address space.
constexpr std::size_t stackBytes = 1'048'576;

}  // namespace

bool WorkerPool::submit(std::function<void()> task) {
  Worker* worker = nullptr;
  {
    const std::lock_guard hold(lock);
    _tasks.push_back(std::move(task));
    // A worker that has just ended its task may have taken the one that another was called for:
    // then that one comes for this task.
    if (_tasks.size() <= _coming) return true;
    ++_coming;
    // The one that slept last, so that those that a burst of tasks has left end in time.
    worker = _lastIdle;
    if (worker != nullptr) {
      takeOut(*worker);
      worker->_isCalled = true;
    }
  }
  if (worker != nullptr) {
    // With the lock free, so that the thread does not wake up only to wait for it.
    worker->wakes.notify_one();
    return true;
  }
  if (startThread()) return true;

  const std::lock_guard hold(lock);
  --_coming;
  // Tasks leave at the front and only this thread adds, so the last one that is still there is
  // ours. If there is none, a worker that had just finished another task has taken it.
  if (_tasks.empty()) return true;
  _tasks.pop_back();
  return false;
}

bool WorkerPool::startThread() {
  Worker* worker = nullptr;
  {
    const std::lock_guard hold(lock);
    worker = std::exchange(_ended, _ended == nullptr ? nullptr : _ended->_below);
  }
  // The record of a thread that has ended is used again first, so there are never more records than
  // there were threads at one time.
  if (worker == nullptr) worker = new (std::nothrow) Worker{*this};
  if (worker == nullptr) return false;

  // Not a `std::thread`, which has the default stack of 8 MiB and can't be given another.
  pthread_t thread{};
  pthread_attr_t attributes;
  bool started = false;
  if (pthread_attr_init(&attributes) == 0) {
    pthread_attr_setstacksize(&attributes, stackBytes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
#ifdef __APPLE__
    // A person waits for what the client's model does next.
    pthread_attr_set_qos_class_np(&attributes, QOS_CLASS_USER_INITIATED, 0);
#endif
    started = pthread_create(&thread, &attributes, workerMain, worker) == 0;
    pthread_attr_destroy(&attributes);
  }
  if (!started) {
    const std::lock_guard hold(lock);
    worker->_below = std::exchange(_ended, worker);
  }
  return started;
}

void* WorkerPool::workerMain(void* worker) {
  auto* const self = static_cast<Worker*>(worker);
  self->pool.work(*self);
  return nullptr;
}

void WorkerPool::work(Worker& self) {
  std::unique_lock hold(lock);
  --_coming;
  for (;;) {
    if (_tasks.empty()) {
      if (!isCalledInTime(self, hold)) break;
      --_coming;
      continue;
    }
    auto task = std::move(_tasks.front());
    _tasks.pop_front();
    hold.unlock();
    task();
    // What it holds goes while the lock is free: a request's whole memory may go with it.
    task = nullptr;
    hold.lock();
  }
  self._below = std::exchange(_ended, &self);
}

bool WorkerPool::isCalledInTime(Worker& self, std::unique_lock<std::mutex>& hold) {
  self._isCalled = false;
  self._above = nullptr;
  self._below = _lastIdle;
  if (_lastIdle != nullptr) _lastIdle->_above = &self;
  _lastIdle = &self;
  if (self.wakes.wait_for(hold, idleLife, [&] { return self._isCalled; })) return true;
  takeOut(self);
  return false;
}

void WorkerPool::takeOut(const Worker& idle) {
  // The uppermost is the one that slept last, so there `_lastIdle` is what refers to it.
  (idle._above != nullptr ? idle._above->_below : _lastIdle) = idle._below;
  if (idle._below != nullptr) idle._below->_above = idle._above;
}

}  // namespace quillmere
