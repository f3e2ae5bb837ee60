#include "algo/output_check.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kMostLinks = 40;  // that are followed one after the other, as the kernel does

// A place in a folder, whether or not a file is there.
struct Entry {
  dev_t device = 0;  // of the folder; with a folder that is not there, `name` is the whole path
  ino_t folder = 0;
  std::string name;

  bool operator==(const Entry&) const = default;
};

Entry entryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
  struct stat status;
  if (stat(folder.c_str(), &status) != 0) return {0, 0, path};
  return {status.st_dev, status.st_ino, slash == path.npos ? path : path.substr(slash + 1)};
}

// Where the symbolic link leads to; empty for all else.
std::string linkTarget(const std::string& path) {
  char text[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), text, sizeof text);
  if (length <= 0 || length == ssize_t(sizeof text)) return "";
  const std::string target(text, size_t(length));
  const size_t slash = path.rfind('/');
  return target[0] == '/' || slash == path.npos ? target : path.substr(0, slash + 1) + target;
}

bool isNumber(const std::string& text) {  // _N
  if (text.size() < 2 || text[0] != '_' || (text[1] == '0' && text.size() > 2)) return false;
  return text.find_first_not_of("0123456789", 1) == text.npos;
}

// Whether a name that ends so, behind the output's, is one of its shards' files: _N as a number is printed; -1 is the
// header's.
bool isShardSuffix(std::string text) {
  if (text == "_-1") return true;
  const bool sorted = text.starts_with("_tmp_");  // _tmp_N, _tmp_N_N, _tmp_N_N.tmp: of a sort on the way
  if (sorted) text.erase(0, 4);
  if (sorted && text.ends_with(".tmp")) text.erase(text.size() - 4);
  const size_t second = sorted ? text.find('_', 1) : text.npos;
  return isNumber(text.substr(0, second)) && (second == text.npos || isNumber(text.substr(second)));
}

void discard(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return;
  if (S_ISREG(status.st_mode))
    unlink(path.c_str());
  else if (S_ISLNK(status.st_mode) && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           truncate(path.c_str(), 0) != 0)
    perror(path.c_str());
}

// A file of the run: the entries that lead to it, its own the last, and its identity when it exists.
class RunFile {
 public:
  explicit RunFile(std::string path) : path(std::move(path)) {
    struct stat status;
    exists_ = stat(this->path.c_str(), &status) == 0;
    plain_ = !exists_ || S_ISREG(status.st_mode);
    if (exists_) {
      device_ = status.st_dev;
      inode_ = status.st_ino;
    }
    std::string step = this->path;
    for (int i = 0; i <= kMostLinks && !step.empty(); ++i) {
      entries_.push_back(entryOf(step));
      step = linkTarget(step);
    }
  }

  bool isSameAs(const RunFile& other) const {
    if (!plain_ || !other.plain_ || entries_.empty() || other.entries_.empty()) return false;
    if (exists_ && other.exists_ && device_ == other.device_ && inode_ == other.inode_) return true;
    return entries_.back() == other.entries_.back();
  }

  // Whether a shard file of this output takes the place of `other`, or of a link that leads there.
  bool hasShardFile(const RunFile& other) const {
    return !entries_.empty() &&
           std::any_of(other.entries_.begin(), other.entries_.end(), [this](const Entry& entry) {
             const Entry& own = entries_.front();
             return entry.device == own.device && entry.folder == own.folder &&
                    entry.name.starts_with(own.name) && isShardSuffix(entry.name.substr(own.name.size()));
           });
  }

  std::string path;

 private:
  std::vector<Entry> entries_;
  bool exists_ = false;
  bool plain_ = true;  // a regular file, or none yet
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

struct Output {
  RunFile file;
  bool has_shard_files;
  const Algo* algo;
};

bool clash(const Output& a, const Output& b) {
  return a.file.isSameAs(b.file) || (a.has_shard_files && a.file.hasShardFile(b.file)) ||
         (b.has_shard_files && b.file.hasShardFile(a.file));
}

bool clash(const Output& output, const RunFile& input) {
  return output.file.isSameAs(input) || (output.has_shard_files && output.file.hasShardFile(input));
}

std::vector<RunFile> inputFiles(const DriverContext& context, const std::vector<Algo*>& algos) {
  std::vector<RunFile> files;
  if (context.reads)
    for (const BAMHandle* handle : context.reads->input().handles()) {
      files.emplace_back(handle->path);
      if (handle->index && !handle->index->path.empty()) files.emplace_back(handle->index->path);
    }
  if (context.reference) {
    files.emplace_back(context.reference->path());
    files.emplace_back(context.reference->index_path());
  }
  if (!context.interval_file.empty()) files.emplace_back(context.interval_file);
  for (const std::string& path : context.quality_tables) files.emplace_back(path);
  for (const Algo* algo : algos)
    for (const std::string& path : algo->inputs())
      for (const char* index : {"", ".tbi", ".csi", ".idx"})
        if (*index == 0 || access((path + index).c_str(), F_OK) == 0) files.emplace_back(path + index);
  return files;
}

}  // namespace

void refuseOutputClashes(const DriverContext& context, const std::vector<Algo*>& algos) {
  const std::vector<RunFile> inputs = inputFiles(context, algos);
  std::vector<Output> outputs;
  for (const Algo* algo : algos)
    for (const OutputFile& declared : algo->outputs()) {
      Output output{RunFile(declared.path), declared.has_shard_files, algo};
      const std::string text = algo->name + ": output file " + declared.path + " would overwrite ";
      for (const RunFile& input : inputs)
        if (clash(output, input)) throw std::invalid_argument(text + "input file " + input.path);
      for (const Output& other : outputs)
        if (clash(output, other))
          throw std::invalid_argument(text + "output file " + other.file.path + " of " + other.algo->name);
      outputs.push_back(std::move(output));
    }
}

void discardOutputs(const std::vector<OutputFile>& files) {
  for (const OutputFile& output : files) {
    discard(output.path);
    if (!output.has_shard_files) continue;
    const std::filesystem::path path(output.path);
    const std::string begin = path.filename().string();
    std::error_code ignored;
    std::filesystem::directory_iterator entry(path.has_parent_path() ? path.parent_path() : ".", ignored),
        end;
    std::vector<std::string> found;
    for (; !ignored && entry != end; entry.increment(ignored))
      if (const std::string file = entry->path().filename().string();
          file.starts_with(begin) && isShardSuffix(file.substr(begin.size())))
        found.push_back(entry->path().string());
    for (const std::string& file : found) discard(file);
  }
}
