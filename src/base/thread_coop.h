// thread_coop.h - the thread pool of a run: workers with a body of their own, which serve tasks when it is
// done.
// Threads  every member may be called from any thread, but for addWorker() and join(), which belong to the
//          thread that owns the pool.
// Errors   a task must not throw; std::system_error when a thread cannot be started.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

struct Timer;

class thread_coop {
 public:
  using Task = std::shared_ptr<std::function<void()>>;

  thread_coop();
  ~thread_coop();
  thread_coop(const thread_coop&) = delete;
  thread_coop& operator=(const thread_coop&) = delete;

  // Starts a thread that runs `body` and then serves tasks until the pool has no users left.
  void addWorker(std::function<void()> body);

  // Appends a task; some worker that serves tasks, or a thread inside waitFor(), will run it.
  void addTask(Task task);

  // Takes the first task into `out`. With none: false at once when `wait` is false or no user is left,
  // else waits for one. The wait is charged to the timer "idle".
  bool tryTask(Task& out, bool wait);

  // Whether fewer tasks wait than there are workers that have nothing else to do: a task handed in now is one
  // that keeps such a worker busy.
  bool wantsTask();

  // Ends the phase: gives up the owner's use, waits for all workers, and makes the pool ready for another
  // phase.
  void join();

  // Wraps `work` in a task and returns its future. An exception of `work` comes out of the future.
  template <class Work>
  auto submit(Work work) -> std::future<decltype(work())>;

  // Waits for `future` and runs tasks of the pool meanwhile, so that waiting inside a task cannot deadlock.
  template <class T>
  void waitFor(std::future<T>& future);

 private:
  void serve();
  void dropUser();

  std::vector<std::thread> threads_;  // owner's thread only
  std::mutex mutex_;                  // guards all below
  int users_ = 1;                     // workers whose body still runs, and 1 for the owner
  std::deque<Task> tasks_;
  size_t serving_ = 0;  // workers whose body has ended
  std::condition_variable wake_;
  Timer* idle_;
};

template <class Work>
auto thread_coop::submit(Work work) -> std::future<decltype(work())> {
  auto packaged = std::make_shared<std::packaged_task<decltype(work())()>>(std::move(work));
  auto future = packaged->get_future();
  addTask(std::make_shared<std::function<void()>>([packaged] { (*packaged)(); }));
  return future;
}

template <class T>
void thread_coop::waitFor(std::future<T>& future) {
  Task task;
  while (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready && tryTask(task, false))
    (*task)();
  future.wait();
}
