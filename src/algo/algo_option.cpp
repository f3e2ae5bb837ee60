#include "algo/algo_option.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
constexpr int kHelpColumn = 24;
}

void OptionParser::add(const AlgoOption& option, Setter setter) {
  entries_.push_back({option, std::move(setter), 0});
  short_letters_.clear();
  getopt_table_.clear();
}

void OptionParser::addFlag(const char* name, int short_letter, const char* help, bool& field) {
  add({name, no_argument, short_letter, help}, [&field](const char*) { return field = true; });
}

void OptionParser::addInt(const char* name, int short_letter, const char* help, int& field) {
  add({name, required_argument, short_letter, help}, [&field](const char* value) {
    field = int(std::clamp(strtol(value, nullptr, 10), long(INT_MIN), long(INT_MAX)));
    return true;
  });
}

void OptionParser::addDouble(const char* name, int short_letter, const char* help, double& field) {
  add({name, required_argument, short_letter, help}, [&field](const char* value) {
    field = strtod(value, nullptr);
    return true;
  });
}

void OptionParser::addText(const char* name, int short_letter, const char* help, std::string& field) {
  add({name, required_argument, short_letter, help}, [&field](const char* value) {
    field = value;
    return true;
  });
}

void OptionParser::addList(const char* name, int short_letter, const char* help,
                           std::vector<std::string>& field) {
  add({name, required_argument, short_letter, help}, [&field](const char* value) {
    field.push_back(value);
    return true;
  });
}

// getopt_long stores the index of a long option in `long_choice_` and returns 0; of a short one it returns
// the letter.
void OptionParser::buildGetoptTable() {
  if (!getopt_table_.empty()) return;
  for (size_t i = 0; i < entries_.size(); ++i) {
    const AlgoOption& option = entries_[i].option;
    getopt_table_.push_back({option.name, option.has_arg, &long_choice_, int(i)});
    if (!option.short_letter) continue;
    short_letters_ += char(option.short_letter);
    short_letters_.append(option.has_arg, ':');
  }
  getopt_table_.push_back({nullptr, 0, nullptr, 0});
}

OptionParser::Entry* OptionParser::entryOf(int getopt_answer) {
  if (getopt_answer == 0) return &entries_[long_choice_];
  for (Entry& entry : entries_)
    if (entry.option.short_letter == getopt_answer) return &entry;
  return nullptr;
}

OptionParser::Outcome OptionParser::parse(int count, const char* const args[],
                                          std::vector<const char*>& positional) {
  buildGetoptTable();
  // getopt reorders the pointers of the array it is given, never the texts: it gets a copy.
  std::vector<char*> copy;
  for (int i = 0; i < count; ++i) copy.push_back(const_cast<char*>(args[i]));
  copy.push_back(nullptr);

  opterr = 0;
  previous_option_.clear();
  for (Entry& entry : entries_) entry.times = 0;
  optind = 0;  // with 0 glibc also forgets what it remembers of the array before; it goes on from 1
  for (;;) {
    const int answer = getopt_long(count, copy.data(), short_letters_.c_str(), getopt_table_.data(), nullptr);
    if (answer == -1) break;
    Entry* const entry = answer == '?' ? nullptr : entryOf(answer);
    // getopt has moved on to the next argument, but for a cluster of short letters, which it is still in.
    faulty_argument_ = copy[std::clamp(optind - 1, 1, count - 1)];
    if (!entry) return kUnknownOption;
    if (!entry->setter(optarg)) return kRefused;
    previous_option_ = entry->option.name;
    ++entry->times;
  }
  positional.assign(copy.begin() + std::min(optind, count), copy.begin() + count);
  return kOk;
}

std::string_view OptionParser::doubledOption(std::initializer_list<std::string_view> repeatable) const {
  for (const Entry& entry : entries_)
    if (entry.times > 1 &&
        std::find(repeatable.begin(), repeatable.end(), entry.option.name) == repeatable.end())
      return entry.option.name;
  return {};
}

void OptionParser::print(FILE* stream, const char* title) const {
  if (title) fprintf(stream, "%s\n", title);
  for (const Entry& entry : entries_) {
    const AlgoOption& option = entry.option;
    if (!option.help) continue;
    const int width = option.short_letter ? fprintf(stream, "  -%c, --%s", option.short_letter, option.name)
                                          : fprintf(stream, "      --%s", option.name);
    if (width >= kHelpColumn)
      fprintf(stream, "\n%*s", kHelpColumn, "");
    else
      fprintf(stream, "%*s", kHelpColumn - width, "");
    for (const char* line = option.help;;) {
      const char* end = strchrnul(line, '\n');
      fprintf(stream, "%.*s\n", int(end - line), line);
      if (!*end) break;
      line = end + 1;
      fprintf(stream, "%*s", kHelpColumn, "");
    }
  }
}
