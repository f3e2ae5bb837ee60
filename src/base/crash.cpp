#include "base/crash.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <execinfo.h>
#include <string>
#include <typeinfo>
#include <unistd.h>

namespace {

// Runs inside a signal handler: no allocation, no stdio but the descriptor's number.
void report(int) {
  void* frames[256];
  int count = backtrace(frames, 256);
  if (count < 1) return;
  int descriptor = fileno(stderr);
  static const char title[] = "Backtrace:\n";
  if (write(descriptor, title, sizeof title - 1) < 0) return;
  backtrace_symbols_fd(frames, count, descriptor);
}

void printUncaught(const std::type_info* type, const char* text) {
  const char* name = type ? type->name() : "unknown";
  int status = -1;
  char* readable = type ? abi::__cxa_demangle(name, nullptr, nullptr, &status) : nullptr;
  fprintf(stderr, "Uncaught exception \"%s\": %s\n", status == 0 ? readable : name, text);
  fflush(stderr);
  free(readable);
}

[[noreturn]] void terminateReport() {
  if (std::exception_ptr current = std::current_exception()) {
    try {
      std::rethrow_exception(current);
    } catch (const std::exception& failure) {
      printUncaught(&typeid(failure), failure.what());
    } catch (const std::string& text) {
      printUncaught(&typeid(text), text.c_str());
    } catch (const char* text) {
      printUncaught(&typeid(text), text);
    } catch (...) {
      printUncaught(abi::__cxa_current_exception_type(), "");
    }
  }
  abort();
}

std::function<void()> worker_clean_up;

}  // namespace

void install_crash_handlers() {
  // The first backtrace of a process loads a library, which a signal handler should not do.
  void* frame;
  backtrace(&frame, 1);
  signal(SIGABRT, report);
  std::set_terminate(terminateReport);
}

void set_worker_clean_up(std::function<void()> clean_up) {
  worker_clean_up = std::move(clean_up);
}

void exit_worker(const char* text) {
  // What stops one thread, a full disk for instance, often stops the others in the same moment: the first one tells.
  static std::atomic_flag told = ATOMIC_FLAG_INIT;
  while (told.test_and_set()) pause();
  if (worker_clean_up) worker_clean_up();
  fprintf(stderr, "%s\n", text);
  fflush(stderr);
  _exit(-1);
}
