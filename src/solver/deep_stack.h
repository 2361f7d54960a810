// DeepStack: a thread with a large stack of its own that runs the callables handed to it, one
// at a time, while the caller waits. For libraries that recurse over terms (a deep term would
// overflow an ordinary stack) or keep per-thread state: every call runs on the same thread.
#ifndef TVX_SOLVER_DEEP_STACK_H
#define TVX_SOLVER_DEEP_STACK_H

#include <pthread.h>

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <type_traits>

namespace tvx {

class DeepStack {
 public:
  // 1 GiB: address space only; pages are committed as the stack grows into them.
  static constexpr std::size_t kDefaultStackBytes = std::size_t{1} << 30;

  // Starts the thread; throws std::system_error when it cannot be made.
  explicit DeepStack(std::size_t stack_bytes = kDefaultStackBytes);
  // Stops and joins the thread.
  ~DeepStack();
  DeepStack(DeepStack const&) = delete;
  DeepStack& operator=(DeepStack const&) = delete;

  // Runs `f()` on the thread and returns when it has finished; an exception it throws is
  // thrown again here. Called from the thread itself (from inside a callable), runs f at once.
  template <class F>
  void run(F&& f) {
    run_task([](void* p) { (*static_cast<std::remove_reference_t<F>*>(p))(); },
             static_cast<void*>(&f));
  }

  // Whether the calling thread is this object's thread.
  bool on_thread() const;

 private:
  using Task = void (*)(void*);
  void run_task(Task task, void* arg);
  static void* main(void* self);
  void loop();

  pthread_t thread_{};
  std::mutex mutex_;
  std::condition_variable wake_;  // a task was posted, or the thread must stop
  std::condition_variable done_;  // the task finished, or its caller left
  Task task_ = nullptr;           // posted and not yet taken by the thread
  void* arg_ = nullptr;
  std::exception_ptr error_;  // what the last task threw
  bool busy_ = false;         // a caller is between posting and collecting
  bool finished_ = false;     // the posted task has run
  bool stop_ = false;
};

}  // namespace tvx

#endif  // TVX_SOLVER_DEEP_STACK_H
