#include "base/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <sys/time.h>
#include <vector>

#include "base/text.h"

namespace {

const char* const kLevelWords[] = {"ERROR", "WARN ", "INFO ", "DEBUG", "TRACE"};

int levelFromEnvironment() {
  const char* text = getenv("dbglevel");
  if (!text || !*text) return LOG_INFO;
  char* rest;
  long level = strtol(text, &rest, 10);
  return *rest ? LOG_INFO : int(std::clamp(level, long(LOG_ERROR), long(LOG_TRACE)));
}

// Never destroyed: its engine would close standard error while others may still have something to say.
struct Defaults {
  std::mutex mutex;
  int level = levelFromEnvironment();  // guarded by mutex
  // Kept also when another one takes its place, for the same reason.
  const std::shared_ptr<LoggerEngine> standard = std::make_shared<FileLoggerEngine>(stderr);
  std::shared_ptr<LoggerEngine> engine = standard;  // guarded by mutex
  Defaults() { setvbuf(stderr, nullptr, _IOLBF, BUFSIZ); }
};

Defaults& defaults() {
  static Defaults* instance = new Defaults;
  return *instance;
}

}  // namespace

FileLoggerEngine::~FileLoggerEngine() {
  fflush(stream_);
  fclose(stream_);
}

void FileLoggerEngine::write(int level, const char* tag, const char* text) {
  timeval time = {};
  gettimeofday(&time, nullptr);
  tm local = {};
  localtime_r(&time.tv_sec, &local);
  char date[64];
  strftime(date, sizeof date, "%F/%T", &local);
  const char* word = kLevelWords[std::clamp(level, int(LOG_ERROR), int(LOG_TRACE))];
  fprintf(stream_, "%s.%06d %s %s:%s\n", date, int(time.tv_usec), tag, word, text);
}

Logger::Logger(const char* tag) : level_(LOG_INFO), tag_(tag) {
  if (!tag) {
    setvbuf(stderr, nullptr, _IOLBF, BUFSIZ);
    FileLoggerEngine(stderr).write(LOG_ERROR, "Logger", "Initial logger with NULL tag.");
    exit(-1);
  }
  Defaults& shared = defaults();
  std::lock_guard lock(shared.mutex);
  level_ = shared.level;
  engine_ = shared.engine;
}

void Logger::log(int level, const char* form, ...) const {
  if (!enabled(level)) return;
  va_list args;
  va_start(args, form);
  char small[1024];
  va_list again;
  va_copy(again, args);
  int length = vsnprintf(small, sizeof small, form, args);
  if (length >= int(sizeof small)) {
    std::vector<char> large(size_t(length) + 1);
    vsnprintf(large.data(), large.size(), form, again);
    engine_->write(level, tag_, large.data());
  } else if (length >= 0) {
    engine_->write(level, tag_, small);
  }
  va_end(again);
  va_end(args);
}

void Logger::setDefaults(int level, std::shared_ptr<LoggerEngine> engine) {
  Defaults& shared = defaults();
  std::lock_guard lock(shared.mutex);
  shared.level = level;
  shared.engine = engine ? std::move(engine) : shared.standard;
}

void log_text(const char* form, ...) {
  va_list args;
  va_start(args, form);
  vfprintf(stderr, form, args);
  va_end(args);
}
