// timer.h - named sums of the time that steps of the program take, and the end-of-run table.
// Units    microseconds of user, system and wall ("real") time, of the whole process while a scope is open.
// Threads  sums are atomic, the map of timers is guarded; scopes belong to one thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

struct Timer {
  std::atomic<uint64_t> user{0}, system{0}, real{0}, calls{0};
};

// One sample of the process's resource use, in microseconds; zeros where the system call failed.
struct ResourceUse {
  uint64_t user = 0, system = 0, real = 0;
  static ResourceUse sample();
};

// Charges the time from construction to destruction to a timer; does nothing when the timer is null.
// The usual form keeps the pointer in a static: `static Timer* t = timer("fetch"); TimerScope scope(t);`
class TimerScope {
 public:
  explicit TimerScope(Timer* timer);
  ~TimerScope();
  TimerScope(const TimerScope&) = delete;
  TimerScope& operator=(const TimerScope&) = delete;

 private:
  Timer* timer_;
  ResourceUse begin_;
};

// Finds or creates a timer; the pointer stays valid for the life of the process.
Timer* timer(const std::string& name);

double now();                         // wall clock, seconds
uint64_t peak_memory();               // bytes
int64_t file_size(const char* path);  // bytes, or -1

// The table as text: a line per timer that was used, in name order, then the line of the whole process.
// With `reset` all sums go back to zero and unused again.
std::string timer_table(bool reset);
void print_timers(FILE* stream, bool reset);
