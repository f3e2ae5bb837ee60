// crash.h - what a crash leaves on standard error: the uncaught exception, then a backtrace.
#pragma once

// Installs the SIGABRT handler (backtrace) and the terminate handler (exception's type and text, then abort).
void install_crash_handlers();

// Ends the process the way a failed worker thread does: `text` and a newline on standard error, status 255,
// no clean-up. Of threads that fail together one is heard; the others never return from here either.
[[noreturn]] void exit_worker(const char* text);
