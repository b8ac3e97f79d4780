// Uses pthreads directly, because a `std::thread` always has the default stack of 8 MiB.
#include "platform/detached_thread.hpp"

#include <pthread.h>
#ifdef __APPLE__
#include <pthread/qos.h>
#endif

#include <memory>
#include <utility>

namespace quillmere {

namespace {

using Task = std::function<void()>;

void* runTask(void* given) {
  const std::unique_ptr<Task> task(static_cast<Task*>(given));
  (*task)();
  return nullptr;
}

}  // namespace

bool startDetachedThread(std::size_t stackBytes, std::function<void()> task) {
  auto given = std::make_unique<Task>(std::move(task));
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setstacksize(&attributes, stackBytes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
#ifdef __APPLE__
  // A person is waiting for the client's model to go on.
  pthread_attr_set_qos_class_np(&attributes, QOS_CLASS_USER_INITIATED, 0);
#endif
  pthread_t thread{};
  const bool isStarted = pthread_create(&thread, &attributes, runTask, given.get()) == 0;
  pthread_attr_destroy(&attributes);
  // The thread owns it from here on.
  if (isStarted) static_cast<void>(given.release());
  return isStarted;
}

}  // namespace quillmere
