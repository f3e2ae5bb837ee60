#include "readdata/bam/bam_impl.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <stdexcept>
#include <unordered_set>

#include "base/text.h"
#include "readdata/bam/bam_index_check.h"
#include "readdata/stream/genome_bins.h"

namespace {

constexpr char kMagic[4] = {'B', 'A', 'M', 1};
// Memory grows to this at once on the word of a file, and beyond only as fast as bytes arrive.
constexpr size_t kFirstPiece = 65536;
// Bytes of header text, and, apart from it, of contig names with what each contig takes besides. Far above
// any real file's: a few MB of well packed zeros must not be worth gigabytes of memory.
constexpr size_t kMaxHeader = size_t(256) << 20;
constexpr size_t kContigCost = 64;

// Tells whether a name has been there before. The names are those of a list that grows.
class SeenNames {
 public:
  explicit SeenNames(const std::vector<std::string>& names) : seen_(16, Hash{&names}, Equal{&names}) {}
  bool addLast() { return seen_.insert(static_cast<uint32_t>(names().size() - 1)).second; }

 private:
  struct Hash {
    const std::vector<std::string>* names;
    size_t operator()(uint32_t i) const { return std::hash<std::string>()((*names)[i]); }
  };
  struct Equal {
    const std::vector<std::string>* names;
    bool operator()(uint32_t i, uint32_t k) const { return (*names)[i] == (*names)[k]; }
  };
  const std::vector<std::string>& names() const { return *seen_.key_eq().names; }

  std::unordered_set<uint32_t, Hash, Equal> seen_;
};

}  // namespace

BAMImpl::BAMImpl(std::string path) {
  this->path = std::move(path);
  format_name = "BAM";
}

BAMImpl::~BAMImpl() {
  // While the stack unwinds, the handle's own destructor leaves the file without an end marker.
  if (io == nullptr || std::uncaught_exceptions() > exceptions_) return;
  try {
    close();
  } catch (const std::exception&) {
    // close() has told it
  }
}

void BAMImpl::open(const char* mode) {
  auto handle = std::make_unique<BGZFHandle>();
  if (!handle->openFile(path.c_str(), mode)) {
    fprintf(stderr, "Failed to open %s: %s\n", path.c_str(), handle->error_text().c_str());
    throw std::invalid_argument("Invalid input file");
  }
  io = std::move(handle);
  exceptions_ = std::uncaught_exceptions();
}

void BAMImpl::close() {
  if (io == nullptr) return;
  std::unique_ptr<IOHandle> closing = std::move(io);
  if (closing->close() == 0) return;
  fprintf(stderr, "Failed to write to %s: %s\n", path.c_str(), closing->error_text().c_str());
  throw std::runtime_error("file write error");
}

bool BAMImpl::setOptions(const std::map<std::string, std::string>&) {
  return true;
}

std::unique_ptr<BAMHandle> BAMImpl::clone() {
  auto copy = std::make_unique<BAMImpl>(path);
  copy->io = io->clone();
  if (copy->io == nullptr) {
    fprintf(stderr, "Failed to open %s: %s\n", path.c_str(), io->error_text().c_str());
    throw std::invalid_argument("Invalid input file");
  }
  copy->header = header;
  copy->index = index;
  copy->reference = reference;
  copy->records_begin_ = records_begin_;
  copy->exceptions_ = std::uncaught_exceptions();
  return copy;
}

int BAMImpl::setParallel(thread_coop* pool) {
  return bgzf().set_parallel(pool);
}

// --- header ---

void BAMImpl::failHeader(const std::string& reason) const {
  fprintf(stderr, "Invalid BAM header from file %s\n(%s)\n", path.c_str(), reason.c_str());
  throw std::invalid_argument("file format error");
}

void BAMImpl::readHeaderBytes(void* to, size_t count) {
  if (io->read(to, count) == static_cast<int64_t>(count)) return;
  std::string reason = io->error_text();
  fprintf(stderr, "Failed to read file %s: %s\n", path.c_str(),
          reason.empty() ? "truncated file" : reason.c_str());
  throw std::runtime_error("file read error");
}

void BAMImpl::readHeaderText(std::string& text, size_t length) {
  text.clear();
  while (text.size() < length) {
    size_t have = text.size();
    size_t piece = std::min(length - have, std::max(have, kFirstPiece));
    text.resize(have + piece);
    readHeaderBytes(text.data() + have, piece);
  }
}

void BAMImpl::readHeader() {
  if (io->seek(0, SEEK_SET) < 0) {
    fprintf(stderr, "Failed to rewind file %s: %s\n", path.c_str(), io->error_text().c_str());
    throw std::runtime_error("file seek error");
  }
  char magic[sizeof kMagic] = {};
  if (io->read(magic, sizeof magic) != sizeof magic || memcmp(magic, kMagic, sizeof magic) != 0) {
    fprintf(stderr, "Invalid BAM header from file %s\n", path.c_str());
    throw std::invalid_argument("file format error");
  }
  auto read = std::make_shared<bam_header>();
  int32_t text_length, contigs;
  readHeaderBytes(&text_length, sizeof text_length);
  if (text_length < 0) failHeader(format("text of %d bytes", text_length));
  if (static_cast<size_t>(text_length) > kMaxHeader)
    failHeader(format("text of %d bytes, more than %zu", text_length, kMaxHeader));
  readHeaderText(read->text, text_length);
  read->text.resize(read->text.find_last_not_of('\0') + 1);
  readHeaderBytes(&contigs, sizeof contigs);
  if (contigs < 0) failHeader(format("%d contigs", contigs));
  std::string name;
  SeenNames seen(read->names);
  size_t left = kMaxHeader;
  for (int32_t i = 0; i < contigs; ++i) {
    int32_t name_length, length;
    readHeaderBytes(&name_length, sizeof name_length);
    if (name_length < 2) failHeader(format("name of contig %d has %d bytes", i, name_length));
    if (kContigCost + name_length > left)
      failHeader(format("the list of %d contigs takes more than %zu bytes", contigs, kMaxHeader));
    left -= kContigCost + name_length;
    readHeaderText(name, name_length);
    if (name.find('\0') != name.size() - 1) failHeader(format("name of contig %d does not end in zero", i));
    name.pop_back();
    readHeaderBytes(&length, sizeof length);
    if (length < 0) failHeader(format("contig %s has %d bases", name.c_str(), length));
    read->names.push_back(name);
    read->lengths.push_back(length);
    if (!seen.addLast()) failHeader("contig " + name + " is there twice");
  }
  records_begin_ = tell();
  header = std::move(read);
}

void BAMImpl::writeHeader() {
  auto text_length = static_cast<int32_t>(header->text.size());
  auto contigs = static_cast<int32_t>(header->contigCount());
  if (header->text.size() > INT32_MAX || header->contigCount() > INT32_MAX)
    throw std::invalid_argument("The header is too large for BAM file " + path);
  writeRaw(kMagic, sizeof kMagic);
  writeRaw(&text_length, sizeof text_length);
  writeRaw(header->text.data(), header->text.size());
  writeRaw(&contigs, sizeof contigs);
  for (size_t i = 0; i < header->contigCount(); ++i) {
    auto name_length = static_cast<int32_t>(header->names[i].size() + 1);
    writeRaw(&name_length, sizeof name_length);
    writeRaw(header->names[i].c_str(), name_length);
    writeRaw(&header->lengths[i], sizeof header->lengths[i]);
  }
  flush();
  records_begin_ = tell();
}

int64_t BAMImpl::headerLength() {
  BAMImpl target("/dev/null");
  // With the compression level of this handle, if it is open.
  target.io = io != nullptr ? io->open("/dev/null", "w") : BGZFHandle().open("/dev/null", "w");
  if (target.io == nullptr) {
    fprintf(stderr, "Failed to open /dev/null\n");
    throw std::runtime_error("file open error");
  }
  target.exceptions_ = std::uncaught_exceptions();
  target.header = header;
  target.writeHeader();
  return static_cast<int64_t>(target.bgzf().block_address());
}

// --- records ---

void BAMImpl::failRecord(const char* reason) const {
  std::string io_reason = io->error_text();
  if (reason == nullptr) reason = io_reason.empty() ? "the file ends inside a record" : io_reason.c_str();
  if (sought_by_index_)
    fprintf(stderr,
            "Failed to read from %s: corrupted or truncated, or its index %s is that of another file\n(%s)\n",
            path.c_str(), index->path.c_str(), reason);
  else
    fprintf(stderr, "Failed to read from %s: corrupted or truncated\n(%s)\n", path.c_str(), reason);
  throw std::runtime_error("file read error");
}

void BAMImpl::readData(bam_record& record, size_t length) {
  record.data_len = 0;
  // Room for the decoded letters goes with the data, so that decoding needs no memory of its own.
  size_t letters = record.l_seq > 0 && static_cast<size_t>(record.l_seq) <= length ? record.l_seq : 0;
  BGZFHandle& in = bgzf();
  size_t have = 0;
  while (have < length) {
    size_t piece = std::min(length - have, std::max(have, kFirstPiece));
    size_t room = have + piece + (have + piece == length ? letters : 0);
    if (static_cast<size_t>(record.data_capacity) < room) record.growData(room);
    if (in.read(record.data + have, piece) != static_cast<int64_t>(piece)) failRecord(nullptr);
    have += piece;
    record.data_len = static_cast<int32_t>(have);
  }
}

void BAMImpl::checkPlace(const bam_record& record) const {
  if (record.next_pos < -1 || record.next_pos == INT32_MAX) failRecord("position of the mate out of range");
  if (record.tlen == INT32_MIN) failRecord("template length out of range");
  if (header == nullptr) return;
  auto contigs = static_cast<int64_t>(header->contigCount());
  if (record.ref_id < -1 || record.ref_id >= contigs) failRecord("contig number out of range");
  if (record.next_ref_id < -1 || record.next_ref_id >= contigs)
    failRecord("contig number of the mate out of range");
  if (record.ref_id < 0) {
    if (record.pos < -1 || record.pos == INT32_MAX) failRecord("position out of range");
    return;
  }
  if (record.pos < 0 || static_cast<uint32_t>(record.pos) >= header->lengths[record.ref_id])
    throw std::runtime_error(format("BAM file %s: %s is outside its contig of %u bases", path.c_str(),
                                    placeText(record).c_str(), header->lengths[record.ref_id]));
}

std::string BAMImpl::placeText(const bam_record& record) const {
  if (record.ref_id < 0) return format("read %s without coordinates", record.name());
  return format("read %s at %s:%lld", record.name(), header->names[record.ref_id].c_str(),
                static_cast<long long>(record.pos) + 1);
}

int64_t BAMImpl::readRecord(bam_record& record) {
  BGZFHandle& in = bgzf();
  int32_t size;
  int64_t got = in.read(&size, sizeof size);
  if (got == 0) return 0;
  if (got != sizeof size) failRecord(nullptr);
  if (size < static_cast<int32_t>(bam_record::kFixedSize) || size > kMaxRecord)
    failRecord("size of a record out of range");
  if (in.read(record.fixedBlock(), bam_record::kFixedSize) != bam_record::kFixedSize) failRecord(nullptr);
  readData(record, size - bam_record::kFixedSize);
  const char* reason = check(record);
  if (reason != nullptr) failRecord(reason);
  checkPlace(record);
  normalise_cigar(record);
  sought_by_index_ = false;
  return size;
}

void BAMImpl::writeRaw(const void* bytes, size_t length) {
  if (bgzf().write(bytes, length) == static_cast<int64_t>(length)) return;
  fprintf(stderr, "Failed to write to %s: %s\n", path.c_str(), io->error_text().c_str());
  throw std::runtime_error("file write error");
}

void BAMImpl::writeRecord(const bam_record& record) {
  uint8_t head[4 + bam_record::kFixedSize];
  auto size = static_cast<int32_t>(bam_record::kFixedSize + record.data_len);
  memcpy(head, &size, sizeof size);
  memcpy(head + sizeof size, record.fixedBlock(), bam_record::kFixedSize);
  if (bgzf().ensure_room(sizeof head + record.data_len) != 0) {
    fprintf(stderr, "Failed to write to %s: %s\n", path.c_str(), io->error_text().c_str());
    throw std::runtime_error("file write error");
  }
  uint64_t begin = index_builder_ != nullptr ? tell() : 0;
  writeRaw(head, sizeof head);
  writeRaw(record.data, record.data_len);
  if (index_builder_ != nullptr)
    index_builder_->add(record.ref_id, record.pos, alignment_end(record), (record.flag & FLAG_UNMAPPED) == 0,
                        begin, tell(), record.name());
}

uint64_t BAMImpl::tell() const {
  return static_cast<uint64_t>(bgzf().tell());
}

void BAMImpl::flush() {
  if (io->flush() == 0) return;
  fprintf(stderr, "Failed to flush file %s: %s\n", path.c_str(), io->error_text().c_str());
  throw std::runtime_error("file write error");
}

void BAMImpl::setIndexBuilder(BamIndexHelper* helper) {
  index_builder_ = helper;
}

// --- index ---

void BAMImpl::setIndex(std::shared_ptr<const BamIndex> index) {
  auto refuse = [&](const std::string& reason) {
    throw std::invalid_argument("Bam index file " + index->path + " does not belong to " + path + ": " +
                                reason);
  };
  if (index != nullptr && header != nullptr) {
    if (index->contigs.size() != header->contigCount())
      refuse(format("it has %zu contigs, the bam file %zu", index->contigs.size(), header->contigCount()));
    for (size_t i = 0; i < index->contigs.size(); ++i) {
      for (const auto& [bin, chunks] : index->contigs[i].bins) {
        // A read's bin holds its first base, so no bin in use begins behind the contig.
        if (!chunks.empty() && binStart(bin) >= header->lengths[i])
          refuse("it has reads behind the end of contig " + header->names[i]);
        for (const Chunk& chunk : chunks)
          if (chunk.begin < records_begin_) refuse("it has reads inside the header");
      }
    }
    checkIndexCovers(static_cast<BAMImpl&>(*clone()), *index, records_begin_);
  }
  this->index = std::move(index);
}

uint64_t BAMImpl::readCount() const {
  return index != nullptr ? index->readCount() : 0;
}
