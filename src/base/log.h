// log.h - tagged log lines "%s.%06d %s %s:%s\n": local time, microseconds, tag, level word, message.
// Level    lines above it are dropped: LOG_INFO, or the number in the environment variable `dbglevel`.
// Threads  a Logger may be used from any thread; one line is one write to the stream.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

enum LogLevel { LOG_ERROR = 0, LOG_WARN = 1, LOG_INFO = 2, LOG_DEBUG = 3, LOG_TRACE = 4 };

// Where lines go.
class LoggerEngine {
 public:
  virtual ~LoggerEngine() = default;
  virtual void write(int level, const char* tag, const char* text) = 0;
};

// Writes to a stream that it owns: flushed and closed at the end.
class FileLoggerEngine final : public LoggerEngine {
 public:
  explicit FileLoggerEngine(FILE* stream) : stream_(stream) {}
  ~FileLoggerEngine() override;
  void write(int level, const char* tag, const char* text) override;

 private:
  FILE* stream_;
};

// A static object per source area. A null tag is a programming error: one line on stderr and exit(-1).
class Logger {
 public:
  explicit Logger(const char* tag);
  [[gnu::format(printf, 3, 4)]] void log(int level, const char* form, ...) const;
  bool enabled(int level) const { return level <= level_; }

  // Process-wide settings, taken by loggers made afterwards. The engine is one on stderr at first, and again
  // when null is given; the level is LOG_INFO at first.
  static void setDefaults(int level, std::shared_ptr<LoggerEngine> engine);

 private:
  int level_;
  std::shared_ptr<LoggerEngine> engine_;
  const char* tag_;
};

// The driver's summary writer: formats to standard error, without tag or time.
[[gnu::format(printf, 1, 2)]] void log_text(const char* form, ...);
