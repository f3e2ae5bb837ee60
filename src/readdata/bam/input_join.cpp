// input_join.cpp - how InputSet is built: the headers of all files are walked once, in order, and every fault
// is told before the set is refused.
#include <algorithm>
#include <cassert>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <unordered_set>

#include "readdata/bam/header_lines.h"
#include "readdata/bam/input_set.h"

namespace {

// Gives header lines of one kind their joined IDs. Lines of equal ID and equal fields are one line; of those
// with other fields the first keeps the ID and each further one gets "-dup-" and a number, counted per ID.
// Fields are compared under the ID that the files give, so that a third file equal to a renamed line joins
// that one.
class IdTable {
 public:
  struct Line {
    std::string id;  // joined
    int32_t index;   // of the joined line, the caller's number
    bool fresh;      // not met before
  };

  // `next_index` becomes the index of a line that is fresh.
  Line join(const std::string& id, const std::string& fields, int32_t next_index) {
    Use& use = uses_[id];
    auto [known, fresh] = use.lines.try_emplace(fields);
    if (fresh) {
      std::string name = id;
      while (!taken_.insert(name).second) {
        name = id + "-dup-" + std::to_string(++use.copies);
        use.renamed = true;
      }
      known->second = {name, next_index};
    }
    return {known->second.first, known->second.second, fresh};
  }
  void noteFile(const std::string& id, const std::string& path) { uses_[id].files.push_back(path); }

  // Calls report(ID, files) for each ID of which a line was renamed, in order of the IDs.
  template <class Report>
  void forEachRenamed(Report report) const {
    for (const auto& [id, use] : uses_)
      if (use.renamed) report(id, use.files);
  }

 private:
  struct Use {
    std::unordered_map<std::string, std::pair<std::string, int32_t>> lines;  // by fields: joined ID, index
    std::vector<std::string> files;
    int copies = 0;
    bool renamed = false;
  };
  std::map<std::string, Use> uses_;
  std::unordered_set<std::string> taken_;
};

bool isPrintable(const std::string& name) {
  return !name.empty() &&
         std::none_of(name.begin(), name.end(), [](unsigned char c) { return c < ' ' || c == 127; });
}

}  // namespace

class InputSet::Joiner {
 public:
  Joiner(InputSet& set, uint32_t flags) : set_(set), flags_(flags) {}

  void addFile(size_t index);
  void warnOfRenamedGroups() const;
  bool failed() const { return failed_; }

 private:
  [[gnu::format(printf, 2, 3)]] void fail(const char* form, ...);
  void joinContigs(const bam_header& header);
  void walkText(const std::string& text);
  void checkSortOrder(const HeaderLine& line);
  void joinChecksum(const HeaderLine& line);
  void joinReadGroup(const HeaderLine& line);
  void joinPrograms(std::vector<HeaderFields>& lines);
  void joinProgram(HeaderFields& line, const std::string* previous, IdTable::Line& joined);

  InputSet& set_;
  uint32_t flags_;
  bool failed_ = false;
  IdTable group_ids_, program_ids_;
  std::unordered_set<std::string> nameless_programs_, earlier_comments_;

  // Of the file being added.
  File* file_ = nullptr;
  const char* path_ = "";
  std::vector<char> in_file_;  // by joined contig number
};

void InputSet::Joiner::fail(const char* form, ...) {
  va_list arguments;
  va_start(arguments, form);
  vfprintf(stderr, form, arguments);
  va_end(arguments);
  failed_ = true;
}

void InputSet::Joiner::addFile(size_t index) {
  const BAMHandle& handle = *set_.handles_[index];
  file_ = &set_.files_[index];
  path_ = handle.path.c_str();
  if (!handle.header) {
    fail("Cannot read header from BAM file %s\n", path_);
    return;
  }
  joinContigs(*handle.header);
  walkText(handle.header->text);
}

void InputSet::Joiner::joinContigs(const bam_header& header) {
  assert(header.names.size() == header.lengths.size());
  in_file_.assign(set_.contigs_.size(), 0);
  for (size_t i = 0; i < header.names.size(); i++) {
    const std::string& name = header.names[i];
    // Such a name could not be written to a header again, or would be taken for the reads without place.
    if (!isPrintable(name) || name == kNoCoor)
      fail("Invalid contig name (%s) in BAM file %s\n", name.c_str(), path_);
    auto [known, fresh] = set_.contig_numbers_.try_emplace(name, int32_t(set_.contigs_.size()));
    int32_t number = known->second;
    if (fresh) {
      set_.names_.push_back(std::make_unique<std::string>(name));
      set_.contigs_.push_back({set_.names_.back()->c_str(), 0, header.lengths[i]});
      set_.m5_.emplace_back();
      in_file_.push_back(0);
    } else if (set_.contigs_[number].end != header.lengths[i]) {
      fail("Incompatible contig length (%s) among input BAM files\n", name.c_str());
    }
    // Reads of a second contig of that name would be out of reach.
    if (in_file_[number]) fail("Contig %s occurred more than once in BAM file %s\n", name.c_str(), path_);
    in_file_[number] = 1;
    file_->to_joined.push_back(number);
  }
}

void InputSet::Joiner::walkText(const std::string& text) {
  bool has_header_line = false, has_group = false;
  std::vector<HeaderFields> programs;
  std::vector<std::string> comments;
  HeaderLine line;
  for (HeaderLines lines(text); lines.next(line);) {
    if (line.type == "@HD") {
      has_header_line = true;
      checkSortOrder(line);
    } else if (line.type == "@SQ") {
      joinChecksum(line);
    } else if (line.type == "@RG") {
      has_group = true;
      joinReadGroup(line);
    } else if (line.type == "@PG") {
      programs.emplace_back(line);
    } else if (line.type == "@CO") {
      comments.emplace_back(line.text);
    }
  }
  joinPrograms(programs);
  // A comment may stand twice in a file, but is not repeated for each file that has it.
  for (const std::string& comment : comments)
    if (!earlier_comments_.count(comment)) set_.comments_.push_back(comment);
  earlier_comments_.insert(comments.begin(), comments.end());

  if ((flags_ & kNeedHeaderLine) && !has_header_line)
    fail("The header line (@HD) is missing in BAM file %s\n", path_);
  if ((flags_ & kNeedReadGroup) && !has_group) fail("There is no readgroup (@RG) in BAM file %s\n", path_);
}

void InputSet::Joiner::checkSortOrder(const HeaderLine& line) {
  if (line.value("SO") != "coordinate") fail("BAM file %s is not sorted by coordinate\n", path_);
}

// The contigs are those of the file's binary list; a line for any other is passed over.
void InputSet::Joiner::joinChecksum(const HeaderLine& line) {
  std::string_view name = line.value("SN");
  if (name.empty()) {
    fail("BAM file %s does not have SN at one @SQ line\n", path_);
    return;
  }
  auto found = set_.contig_numbers_.find(name);
  if (found == set_.contig_numbers_.end() || !in_file_[found->second]) return;
  std::string& known = set_.m5_[found->second];
  std::string given(line.value("M5"));
  if (given.empty() || given == known) return;
  if (known.empty())
    known = given;
  else
    fail("BAM file %s @SQ SN:%s M5:%s does not match M5:%s from previous input files\n", path_,
         found->first.c_str(), given.c_str(), known.c_str());
}

void InputSet::Joiner::joinReadGroup(const HeaderLine& line) {
  HeaderFields fields(line);
  const std::string id = fields.by_key["ID"];
  if (id.empty()) {
    fail("Readgroup from %s does not have ID", path_);
    return;
  }
  if (file_->groups.count(id)) {
    fail("Readgroup %s occurred more than once in BAM file %s\n", id.c_str(), path_);
    return;
  }
  if (line.value("SM").empty()) fail("Readgroup %s from BAM file %s has no SM tag\n", id.c_str(), path_);

  IdTable::Line joined = group_ids_.join(id, fields.canonicalText(), int32_t(set_.read_groups_.size()));
  group_ids_.noteFile(id, path_);
  file_->groups[id] = {joined.id, joined.index, joined.id != id};
  if (!joined.fresh) return;
  fields.replace("ID", joined.id);
  ReadGroup group;
  group.id = joined.id;
  group.sample = line.value("SM");
  group.platform = line.value("PL");
  group.center = line.value("CN");
  group.library = line.value("LB");
  group.attributes = std::move(fields.by_key);
  group.ordered = std::move(fields.ordered);
  set_.read_groups_.push_back(std::move(group));
}

// A program's line depends on the joined ID of the one that its PP names, which may stand behind it, so each
// chain is joined from its beginning. A PP that leads nowhere or round in a circle stays as it is.
void InputSet::Joiner::joinPrograms(std::vector<HeaderFields>& lines) {
  std::unordered_map<std::string, size_t> numbers;  // the first line of that ID in this file
  for (size_t i = 0; i < lines.size(); i++) numbers.emplace(lines[i].by_key["ID"], i);
  numbers.erase("");
  auto previousOf = [&](size_t i) -> int64_t {
    auto field = lines[i].by_key.find("PP");
    if (field == lines[i].by_key.end()) return -1;
    auto found = numbers.find(field->second);
    return found == numbers.end() ? -1 : int64_t(found->second);
  };

  enum State : char { kNew, kOnChain, kJoined };
  std::vector<State> states(lines.size(), kNew);
  std::vector<IdTable::Line> joined(lines.size());
  std::vector<size_t> chain;
  for (size_t i = 0; i < lines.size(); i++) {
    chain.clear();
    for (int64_t at = int64_t(i); at >= 0 && states[at] == kNew; at = previousOf(size_t(at))) {
      states[at] = kOnChain;
      chain.push_back(size_t(at));
    }
    for (; !chain.empty(); chain.pop_back()) {
      size_t number = chain.back();
      int64_t previous = previousOf(number);
      bool known = previous >= 0 && states[previous] == kJoined;
      joinProgram(lines[number], known ? &joined[previous].id : nullptr, joined[number]);
      states[number] = kJoined;
    }
  }
  for (size_t i = 0; i < lines.size(); i++) {
    if (!joined[i].fresh) continue;
    auto previous = lines[i].by_key.find("PP");
    set_.programs_.push_back({joined[i].id, previous == lines[i].by_key.end() ? "" : previous->second,
                              headerLineText("@PG", lines[i].ordered)});
  }
}

void InputSet::Joiner::joinProgram(HeaderFields& line, const std::string* previous, IdTable::Line& joined) {
  if (previous) line.replace("PP", *previous);
  const std::string id = line.by_key["ID"];
  if (id.empty()) {
    joined = {"", 0, nameless_programs_.insert(line.canonicalText()).second};
    return;
  }
  joined = program_ids_.join(id, line.canonicalText(), 0);
  line.replace("ID", joined.id);
}

void InputSet::Joiner::warnOfRenamedGroups() const {
  group_ids_.forEachRenamed([](const std::string& id, const std::vector<std::string>& files) {
    std::string names;
    for (const std::string& file : files) names += (names.empty() ? "" : ", ") + file;
    fprintf(stderr, "Readgroup %s with different attributes is present in multiple bam files:  %s\n",
            id.c_str(), names.c_str());
  });
}

InputSet::InputSet(std::vector<BAMHandle*> handles, uint32_t flags, bool quiet)
    : handles_(std::move(handles)) {
  files_.resize(handles_.size());
  Joiner joiner(*this, flags);
  for (size_t i = 0; i < handles_.size(); i++) joiner.addFile(i);
  if (!quiet) joiner.warnOfRenamedGroups();
  if (joiner.failed()) throw std::invalid_argument("Invalid input BAM files");
  indexContigs();
}
