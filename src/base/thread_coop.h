// thread_coop.h - the thread pool of a run: workers with a body of their own, which serve tasks when it is
// done.
// Threads  every member may be called from any thread, but for addWorker() and join(), which belong to the
//          thread that owns the pool.
// Waiting  a task is a leaf, which waits for no other, or it waits through waitFor() alone, and then only for
//          leaves and for tasks that it has handed in itself. Any other wait, by future.wait() or for a task of
//          somebody else, may be for a task further down on the same stack, and then never ends.
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

  // Returns once `future` is ready, and runs tasks of the pool on the caller's stack meanwhile: any of them,
  // one after the other, so it may return late, and the caller must hold no lock that a task takes. It ends
  // without any worker too, when the wait keeps to the rule above: then each stack and each wait leads from a
  // task to one that began later or is a leaf, which is never a circle.
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
