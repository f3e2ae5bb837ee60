// crash.h - what a crash leaves on standard error: the uncaught exception, then a backtrace.
#pragma once

#include <functional>

// Installs the SIGABRT handler (backtrace) and the terminate handler (exception's type and text, then abort).
void install_crash_handlers();

// What exit_worker() does first, once; other threads are at work meanwhile. To be set before there are such.
void set_worker_clean_up(std::function<void()> clean_up);

// Ends the process the way a failed worker thread does: the clean-up that was set, `text` and a newline on standard
// error, status 255, no destructors. Of threads that fail together one is heard; the others never return from here
// either.
[[noreturn]] void exit_worker(const char* text);
