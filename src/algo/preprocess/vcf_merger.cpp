#include "algo/preprocess/vcf_merger.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <future>
#include <stdexcept>
#include <unistd.h>

#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr size_t kMaxGroups = 256;
constexpr size_t kMaxMergedBlocks = 64;     // at a time
constexpr size_t kWaitingLines = 32 << 10;  // bytes of lines of a block in memory

FileOwner openFile(const std::string& path, const char* mode) {
  FileOwner file(fopen(path.c_str(), mode));
  if (!file) throw std::runtime_error("VcfMerger: Cannot not open file " + path + ": " + strerror(errno));
  return file;
}

[[noreturn]] void failWrite(const std::string& path) {
  throw std::runtime_error("VcfMerger: failed to write to file " + path + ": " + strerror(errno));
}

void closeFile(FileOwner& file, const std::string& path) {
  if (file && fclose(file.release()) != 0) failWrite(path);
}

void removeFile(const std::string& path) {
  if (unlink(path.c_str()) != 0)
    throw std::runtime_error("VcfMerger: cannot remove file " + path + ": " + strerror(errno));
}

// All bytes of a file of our own making.
std::string readWhole(const std::string& path) {
  const FileOwner file = openFile(path, "re");
  std::string text;
  if (fseeko(file.get(), 0, SEEK_END) == 0)
    text.resize(static_cast<size_t>(std::max<off_t>(ftello(file.get()), 0)));
  rewind(file.get());
  if (fread(text.data(), 1, text.size(), file.get()) != text.size())
    throw std::runtime_error("failed to read file " + path + ": " + strerror(errno));
  return text;
}

// Brings the lines of a block into order, in memory.
void sortBlock(const std::string& path, uint64_t line_count, const ContigNumbers& contigs) {
  struct Line {
    VcfPlace place;
    const char* text;
    uint32_t length;
    std::string_view view() const { return {text, length}; }
  };
  const std::string text = readWhole(path);
  std::vector<Line> lines;
  lines.reserve(line_count);
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    Line line{{}, text.data() + begin, static_cast<uint32_t>(end - begin)};
    if (!parsePlace(line.view(), contigs, line.place))
      throw std::runtime_error("VcfHandle: " + path + " is in incorrect format or corrupted");
    lines.push_back(line);
    begin = end + 1;
  }
  std::sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) {
    return a.place != b.place ? a.place < b.place : a.view() < b.view();
  });

  const std::string sorted_path = path + ".tmp";
  FileOwner sorted = openFile(sorted_path, "we");
  for (const Line& line : lines)
    if (fwrite(line.text, 1, line.length, sorted.get()) != line.length || putc('\n', sorted.get()) == EOF)
      failWrite(sorted_path);
  closeFile(sorted, sorted_path);
  if (rename(sorted_path.c_str(), path.c_str()) != 0) failWrite(path);
}

// Hands the lines of sorted files to `sink` in order.
void mergeSorted(const std::vector<std::string>& paths, const ContigNumbers& contigs,
                 const std::function<void(const VcfHandle&)>& sink) {
  const auto behind = [](const auto& a, const auto& b) { return *b < *a; };
  std::vector<std::unique_ptr<VcfHandle>> handles;  // a heap, the first line in front
  for (const std::string& path : paths) {
    auto handle = std::make_unique<VcfHandle>(path, contigs);
    if (handle->next()) handles.push_back(std::move(handle));
  }
  std::make_heap(handles.begin(), handles.end(), behind);
  while (!handles.empty()) {
    std::pop_heap(handles.begin(), handles.end(), behind);
    sink(*handles.back());
    if (handles.back()->next())
      std::push_heap(handles.begin(), handles.end(), behind);
    else
      handles.pop_back();
  }
}

}  // namespace

// ---- scatter ----

VcfMerger::VcfMerger(std::string path, std::vector<Contig> contigs, size_t block_size,
                     class thread_coop* pool)
    : contigs_(std::move(contigs)), path_(std::move(path)), block_size_(block_size), thread_coop_(pool) {
  const size_t count = contigs_.size(), each = count / kMaxGroups, longer = count % kMaxGroups;
  groups_.resize(std::min(count, kMaxGroups));
  for (size_t group = 0; group < groups_.size(); ++group)
    group_of_contig_.insert(group_of_contig_.end(), each + (group < longer), static_cast<uint32_t>(group));
  for (size_t i = 0; i < count; ++i) contig_index_.emplace(contigs_[i].contig, static_cast<int32_t>(i));
}

VcfMerger::~VcfMerger() = default;

std::string VcfMerger::groupPath(size_t group) const {
  return path_ + format("_tmp_%zu", group);
}

VcfMerger::BlockFile& VcfMerger::addBlock(size_t group) {
  std::vector<BlockFile>& blocks = groups_[group];
  BlockFile& block = blocks.emplace_back();
  block.path = groupPath(group) + format("_%zu", blocks.size() - 1);
  return block;
}

void VcfMerger::writeWaiting(BlockFile& block) {
  FileOwner file = openFile(block.path, block.begun ? "ae" : "we");
  block.begun = true;
  if (fwrite(block.lines.data(), 1, block.lines.size(), file.get()) != block.lines.size())
    failWrite(block.path);
  closeFile(file, block.path);
  block.lines.clear();
}

void VcfMerger::closeBlock(BlockFile& block) {
  if (!block.lines.empty()) writeWaiting(block);
  block.lines.shrink_to_fit();
}

void VcfMerger::writeLine(BlockFile& block, std::string_view line) {
  block.lines.append(line) += '\n';
  ++block.line_count;
  if (block.lines.size() >= kWaitingLines) writeWaiting(block);
}

void VcfMerger::append(FILE* stream, const std::string& path) {
  LineReader reader(stream, path);
  while (reader.next()) {
    const std::string_view line = reader.line();
    const size_t chrom_end = line.find('\t');
    if (line.starts_with('#') || chrom_end == line.npos) continue;
    const auto contig = contig_index_.find(line.substr(0, chrom_end));
    if (contig == contig_index_.end()) continue;
    const size_t group = group_of_contig_[static_cast<size_t>(contig->second)];
    std::vector<BlockFile>& blocks = groups_[group];
    const bool full = !blocks.empty() && blocks.back().line_count >= block_size_;
    if (full) closeBlock(blocks.back());
    writeLine(full || blocks.empty() ? addBlock(group) : blocks.back(), line);
  }
}

void VcfMerger::appendFile(const std::string& path) {
  append(openFile(path, "re").get(), path);
}

// ---- merge ----

// The job of one group: sorts its blocks and joins them in one file, with the index that belongs to it.
class VcfMerger::Data {
 public:
  Data(VcfMerger& merger, size_t group, std::unique_ptr<VCFWriter> writer)
      : merger_(merger), group_(group), writer_(std::move(writer)) {}

  void run();
  void appendTo(VCFWriter& output);

 private:
  std::string joinBlocks(const std::vector<std::string>& paths);
  void writeGroup(const std::vector<std::string>& paths);
  void endContig();

  VcfMerger& merger_;
  size_t group_;
  std::unique_ptr<VCFWriter> writer_;
  std::deque<VCFWriter::Result> contigs_;  // of the group's file, in its order
};

void VcfMerger::Data::run() {
  if (merger_.failed_) return;
  std::deque<std::string> paths;
  for (const BlockFile& block : merger_.groups_[group_]) {
    sortBlock(block.path, block.line_count, merger_.contig_index_);
    paths.push_back(block.path);
  }
  while (paths.size() > kMaxMergedBlocks) {
    const auto end = paths.begin() + kMaxMergedBlocks;
    paths.push_back(joinBlocks({paths.begin(), end}));
    paths.erase(paths.begin(), paths.begin() + kMaxMergedBlocks);
  }
  writeGroup({paths.begin(), paths.end()});
}

// Makes one block of some, which are removed.
std::string VcfMerger::Data::joinBlocks(const std::vector<std::string>& paths) {
  BlockFile& joined = merger_.addBlock(group_);
  mergeSorted(paths, merger_.contig_index_,
              [&](const VcfHandle& handle) { merger_.writeLine(joined, handle.line()); });
  merger_.closeBlock(joined);
  for (const std::string& path : paths) removeFile(path);
  return joined.path;
}

void VcfMerger::Data::writeGroup(const std::vector<std::string>& paths) {
  writer_->open(merger_.groupPath(group_));
  int32_t contig = -1;
  std::string line;
  mergeSorted(paths, merger_.contig_index_, [&](const VcfHandle& handle) {
    if (handle.place().contig != contig) {
      if (contig >= 0) endContig();
      contig = handle.place().contig;
      writer_->startContig(merger_.contigs_[static_cast<size_t>(contig)].contig);
    }
    const int32_t start = static_cast<int32_t>(handle.place().pos1) - 1;
    line.assign(handle.line()) += '\n';
    writer_->writeLine(line, start, start + 1);
  });
  if (contig >= 0) endContig();
  writer_->close();
  for (const std::string& path : paths) removeFile(path);
}

void VcfMerger::Data::endContig() {
  writer_->endContig(contigs_.emplace_back());
}

void VcfMerger::Data::appendTo(VCFWriter& output) {
  const std::string path = merger_.groupPath(group_);
  for (VCFWriter::Result& contig : contigs_) output.merge(&contig, path);
  removeFile(path);
}

VCFHeader VcfMerger::makeHeader() {
  VCFHeader header;
  header.addLine("source", "Dedup");
  addHeaderLines(header);
  std::vector<VCFHeaderDef>& defs = header.defs["contig"];
  for (const Contig& contig : contigs_)
    defs.push_back({contig.contig, {format("length=%u", contig.end - contig.start)}});
  return header;
}

// Every job is a leaf of the pool; the caller alone waits, and appends in the order of the groups.
void VcfMerger::merge() {
  static Timer* const merge_timer = timer("vcfmerge");
  TimerScope scope(merge_timer);
  VCFWriter output("VcfFileMerger");
  output.open(path_);
  VCFHeader header = makeHeader();
  output.writeHeader(header);

  struct Job {
    std::unique_ptr<Data> data;
    std::future<void> done;
  };
  std::vector<Job> jobs;
  try {
    for (size_t group = 0; group < groups_.size(); ++group) {
      if (groups_[group].empty()) continue;
      for (BlockFile& block : groups_[group]) closeBlock(block);
      Job& job = jobs.emplace_back();
      job.data = std::make_unique<Data>(*this, group, output.clone());
    }
    for (Job& job : jobs) {
      auto work = [data = job.data.get()] { data->run(); };
      job.done = thread_coop_ ? thread_coop_->submit(work) : std::async(std::launch::deferred, work);
    }
    for (Job& job : jobs) {
      if (thread_coop_) thread_coop_->waitFor(job.done);
      job.done.get();
      job.data->appendTo(output);
      job.data.reset();
    }
  } catch (...) {
    // No job may outlive what it works on.
    failed_ = true;
    for (Job& job : jobs)
      if (thread_coop_ && job.done.valid()) thread_coop_->waitFor(job.done);
    throw;
  }
  output.close();
}
