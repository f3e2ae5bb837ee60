#include "base/timer.h"

#include <map>
#include <mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include "base/text.h"

namespace {

// Never destroyed: statics all over the program keep pointers into it, some used while others are torn down.
struct Registry {
  std::mutex mutex;
  std::map<std::string, Timer> timers;  // guarded by mutex
  const uint64_t started = ResourceUse::sample().real;
};

Registry& registry() {
  static Registry* instance = new Registry;
  return *instance;
}

// The process counts from the start of the program, not from the first timer.
[[maybe_unused]] const Registry& early = registry();

uint64_t micros(const timeval& time) {
  return uint64_t(time.tv_sec) * 1000000 + time.tv_usec;
}

// A clock that was set back, or a sample that failed, counts as no time at all.
uint64_t elapsed(uint64_t begin, uint64_t end) {
  return end > begin ? end - begin : 0;
}

std::string row(const std::string& name, uint64_t number, const char* unit, uint64_t user, uint64_t system,
                uint64_t real) {
  auto seconds = [](uint64_t t) { return static_cast<unsigned long long>(t / 1000000); };
  auto millis = [](uint64_t t) { return static_cast<unsigned long long>(t / 1000 % 1000); };
  return format("%s: %llu %s %llu.%03llu user %llu.%03llu sys %llu.%03llu real\n", name.c_str(),
                static_cast<unsigned long long>(number), unit, seconds(user), millis(user), seconds(system),
                millis(system), seconds(real), millis(real));
}

}  // namespace

ResourceUse ResourceUse::sample() {
  ResourceUse use;
  rusage usage;
  if (getrusage(RUSAGE_SELF, &usage) == 0) {
    use.user = micros(usage.ru_utime);
    use.system = micros(usage.ru_stime);
  }
  timeval time;
  if (gettimeofday(&time, nullptr) == 0) use.real = micros(time);
  return use;
}

TimerScope::TimerScope(Timer* timer) : timer_(timer) {
  if (timer_) begin_ = ResourceUse::sample();
}

TimerScope::~TimerScope() {
  if (!timer_) return;
  ResourceUse end = ResourceUse::sample();
  timer_->user += elapsed(begin_.user, end.user);
  timer_->system += elapsed(begin_.system, end.system);
  timer_->real += elapsed(begin_.real, end.real);
  timer_->calls += 1;
}

Timer* timer(const std::string& name) {
  Registry& all = registry();
  std::lock_guard lock(all.mutex);
  return &all.timers[name];
}

double now() {
  timeval time;
  if (gettimeofday(&time, nullptr) != 0) return 0;
  return double(time.tv_sec) + double(time.tv_usec) * 1e-6;
}

uint64_t peak_memory() {
  rusage usage;
  return getrusage(RUSAGE_SELF, &usage) == 0 ? uint64_t(usage.ru_maxrss) * 1024 : 0;
}

int64_t file_size(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 ? int64_t(status.st_size) : -1;
}

std::string timer_table(bool reset) {
  Registry& all = registry();
  std::lock_guard lock(all.mutex);
  std::string table;
  for (auto& [name, timer] : all.timers) {
    auto take = [reset](std::atomic<uint64_t>& sum) { return reset ? sum.exchange(0) : sum.load(); };
    uint64_t calls = take(timer.calls), user = take(timer.user);
    uint64_t system = take(timer.system), real = take(timer.real);
    if (calls) table += row(name, calls, "calls", user, system, real);
  }
  ResourceUse use = ResourceUse::sample();
  return table + row("overall", peak_memory(), "mem", use.user, use.system, elapsed(all.started, use.real));
}

void print_timers(FILE* stream, bool reset) {
  std::string table = timer_table(reset);
  fwrite(table.data(), 1, table.size(), stream);
}
