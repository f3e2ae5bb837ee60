#include "base/thread_coop.h"

#include <exception>
#include <utility>

#include "base/crash.h"
#include "base/timer.h"

namespace {

// Runs what the pool was given. Nobody could take a failure from here, so it ends the process.
void runOrExit(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& failure) {
    exit_worker(failure.what());
  }
}

}  // namespace

thread_coop::thread_coop() : idle_(timer("idle")) {}

thread_coop::~thread_coop() {
  join();
}

void thread_coop::addWorker(std::function<void()> body) {
  {
    std::lock_guard lock(mutex_);
    ++users_;
  }
  try {
    threads_.emplace_back([this, body = std::move(body)] {
      runOrExit(body);
      dropUser();
      serve();
    });
  } catch (...) {
    dropUser();
    throw;
  }
}

void thread_coop::dropUser() {
  std::lock_guard lock(mutex_);
  if (--users_ < 1) wake_.notify_all();
}

void thread_coop::serve() {
  {
    std::lock_guard lock(mutex_);
    ++serving_;
  }
  Task task;
  while (tryTask(task, true)) {
    runOrExit(*task);
    task.reset();  // what the task holds must not live on while this thread waits
  }
  std::lock_guard lock(mutex_);
  --serving_;
}

void thread_coop::addTask(Task task) {
  std::lock_guard lock(mutex_);
  tasks_.push_back(std::move(task));
  wake_.notify_one();
}

bool thread_coop::tryTask(Task& out, bool wait) {
  std::unique_lock lock(mutex_);
  while (tasks_.empty()) {
    if (!wait || users_ < 1) return false;
    TimerScope scope(idle_);
    wake_.wait(lock);
  }
  out = std::move(tasks_.front());
  tasks_.pop_front();
  return true;
}

bool thread_coop::wantsTask() {
  std::lock_guard lock(mutex_);
  return tasks_.size() < serving_;
}

void thread_coop::join() {
  dropUser();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  std::lock_guard lock(mutex_);
  ++users_;
}
