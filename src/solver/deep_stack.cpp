#include "solver/deep_stack.h"

#include <string>
#include <system_error>

namespace tvx {

DeepStack::DeepStack(std::size_t stack_bytes) {
  pthread_attr_t attr;
  int rc = pthread_attr_init(&attr);
  if (rc == 0) {
    rc = pthread_attr_setstacksize(&attr, stack_bytes);
    if (rc == 0) {
      rc = pthread_create(&thread_, &attr, &DeepStack::main, this);
    }
    pthread_attr_destroy(&attr);
  }
  if (rc != 0) {
    throw std::system_error(
        rc, std::generic_category(),
        "cannot start a thread with a stack of " + std::to_string(stack_bytes >> 20) + " MiB");
  }
}

DeepStack::~DeepStack() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  pthread_join(thread_, nullptr);
}

bool DeepStack::on_thread() const {
  return pthread_equal(pthread_self(), thread_) != 0;
}

void DeepStack::run_task(Task task, void* arg) {
  if (on_thread()) {
    task(arg);
    return;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  // One caller at a time: another waits until this one has collected its result.
  done_.wait(lock, [this] { return !busy_; });
  busy_ = true;
  task_ = task;
  arg_ = arg;
  finished_ = false;
  wake_.notify_one();
  done_.wait(lock, [this] { return finished_; });
  std::exception_ptr error = error_;
  error_ = nullptr;
  busy_ = false;
  lock.unlock();
  done_.notify_all();
  if (error) {
    std::rethrow_exception(error);
  }
}

void* DeepStack::main(void* self) {
  static_cast<DeepStack*>(self)->loop();
  return nullptr;
}

void DeepStack::loop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return stop_ || task_ != nullptr; });
    if (task_ == nullptr) {
      return;  // stopping, with no task left
    }
    Task const task = task_;
    void* const arg = arg_;
    task_ = nullptr;
    lock.unlock();
    std::exception_ptr error;
    try {
      task(arg);
    } catch (...) {
      error = std::current_exception();
    }
    lock.lock();
    error_ = error;
    finished_ = true;
    done_.notify_all();
  }
}

}  // namespace tvx
