// input_set.h - any number of read files joined into one logical input: one contig list, one read group list,
// one header, and the maps that carry records from a file's own numbering to the joined one.
// Owns     the joined lists; borrows the handles, which must outlive it.
// Threads  constant once built and checked; translate() may run on several threads.
// Errors   every fault of the headers is told on standard error, then std::invalid_argument "Invalid input
//          BAM files".
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "readdata/bam/bam_handle.h"
#include "readdata/interval/interval.h"

struct ReadGroup {
  std::string id, sample, platform, center, library;         // ID, SM, PL, CN, LB; empty when absent
  std::map<std::string, std::string> attributes;             // all of them, by tag
  std::vector<std::pair<std::string, std::string>> ordered;  // all of them, in the order of the header line
};

class InputSet {
 public:
  enum Flags : uint32_t { kNeedHeaderLine = 1, kNeedReadGroup = 2 };
  using FieldList = std::vector<std::pair<std::string, std::string>>;

  // `quiet` suppresses warnings that the run's first InputSet has printed already (the clones of the
  // walkers).
  InputSet(std::vector<BAMHandle*> handles, uint32_t flags, bool quiet = false);

  const std::vector<BAMHandle*>& handles() const { return handles_; }
  const std::vector<Contig>& contigs() const { return contigs_; }  // names live as long as this object
  int32_t contigNumber(const std::string& name) const;             // -1 unknown
  const std::vector<ReadGroup>& readGroups() const { return read_groups_; }

  // The checks against a reference, told on standard error: negative when they fail. When all is well the
  // joined contigs take the order of the reference, and all numbers follow; to be called before reading.
  int check_contigs(const std::vector<Contig>& reference_contigs);

  // This file's number of a joined contig, -1 when the file lacks it.
  int32_t fileContig(size_t file, int32_t contig) const { return files_[file].from_joined[contig]; }
  int32_t joinedContig(size_t file, int32_t file_contig) const { return files_[file].to_joined[file_contig]; }
  // Rewrites contig numbers and read group of a record to the joined ones and returns the read group's index.
  // Of several tags RG the first counts and alone is left; one that is no text counts as absent. Throws std::runtime_error when the record has no read group or
  // one that the header lacks, or when a contig number is not one of the file's.
  int32_t translate(size_t file, bam_record& record) const;

  // "@HD" line with SO:coordinate, contigs, read groups, @PG and @CO lines, each ended by a newline.
  // `program` holds "ID", "VN" ... pairs of a program line (none: no line) that is added behind the others.
  // It is chained by PP to the last program that no other one names as its predecessor, and a taken ID gets
  // "-dup-" and a number.
  std::string headerText(const FieldList& program) const;
  std::shared_ptr<const bam_header> mergedHeader(const FieldList& program) const;

 private:
  class Joiner;

  struct Group {
    std::string id;  // in the joined header
    int32_t index;
    bool renamed;
  };
  struct TextHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };
  using GroupMap = std::unordered_map<std::string, Group, TextHash, std::equal_to<>>;
  struct File {
    std::vector<int32_t> to_joined;    // by the file's contig number
    std::vector<int32_t> from_joined;  // by joined contig number
    GroupMap groups;                   // by the file's read group ID
    // Groups met lately, by the last letter of their ID, which is where the IDs of lanes differ.
    mutable std::array<std::atomic<const GroupMap::value_type*>, 16> recent_groups{};
  };
  struct Program {
    std::string id, previous, line;  // ID and PP, empty when absent
  };

  void indexContigs();
  void takeOrder(const std::map<std::string_view, size_t>& ranks);
  const Group& groupOf(size_t file, const bam_record& record,
                       std::string_view id) const;  // `id` may be empty
  Program chained(const FieldList& fields) const;

  std::vector<BAMHandle*> handles_;
  std::deque<File> files_;
  std::vector<std::unique_ptr<std::string>> names_;  // what the contigs point to, in no particular order
  std::vector<Contig> contigs_;
  std::unordered_map<std::string, int32_t, TextHash, std::equal_to<>> contig_numbers_;
  std::vector<std::string> m5_;  // per joined contig, empty when unknown
  std::vector<ReadGroup> read_groups_;
  std::vector<Program> programs_;
  std::vector<std::string> comments_;  // header lines
};
