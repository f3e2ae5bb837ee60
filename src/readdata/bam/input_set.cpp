#include "readdata/bam/input_set.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unordered_set>

#include "readdata/bam/header_lines.h"

int32_t InputSet::contigNumber(const std::string& name) const {
  auto found = contig_numbers_.find(name);
  return found == contig_numbers_.end() ? -1 : found->second;
}

// The maps that follow from the order of `contigs_` and each file's `to_joined`.
void InputSet::indexContigs() {
  contig_numbers_.clear();
  for (size_t i = 0; i < contigs_.size(); i++) contig_numbers_[contigs_[i].contig] = int32_t(i);
  for (File& file : files_) {
    file.from_joined.assign(contigs_.size(), -1);
    for (size_t i = 0; i < file.to_joined.size(); i++) file.from_joined[file.to_joined[i]] = int32_t(i);
  }
}

int InputSet::check_contigs(const std::vector<Contig>& reference_contigs) {
  int result = 0;
  std::map<std::string_view, size_t> ranks;
  for (size_t i = 0; i < reference_contigs.size(); i++) ranks.emplace(reference_contigs[i].contig, i);
  for (const Contig& contig : contigs_) {
    auto found = ranks.find(contig.contig);
    if (found == ranks.end()) {
      fprintf(stderr, "Contig %s from the bam files is not present in the reference\n", contig.contig);
      result = -1;
    } else if (reference_contigs[found->second].end != contig.end) {
      fprintf(stderr, "Contig %s has different size in the bam files than in the reference\n", contig.contig);
      result = -1;
    }
  }
  for (size_t i = 0; i < files_.size(); i++) {
    std::vector<size_t> order;
    for (int32_t joined : files_[i].to_joined)
      if (auto found = ranks.find(contigs_[joined].contig); found != ranks.end())
        order.push_back(found->second);
    if (std::is_sorted(order.begin(), order.end())) continue;
    fprintf(stderr,
            "Contigs in bam file %s are not in the same order as the reference contigs. The input bam file "
            "need be sorted in the reference order.\n",
            handles_[i]->path.c_str());
    result = -1;
  }
  if (result == 0) takeOrder(ranks);
  return result;
}

// Puts the joined contigs into the order of their ranks. Files that each rise may still have been joined out
// of order, when one has contigs that an earlier one lacks.
void InputSet::takeOrder(const std::map<std::string_view, size_t>& ranks) {
  std::vector<int32_t> order(contigs_.size());
  for (size_t i = 0; i < order.size(); i++) order[i] = int32_t(i);
  auto rank = [&](int32_t number) { return ranks.find(contigs_[number].contig)->second; };
  std::sort(order.begin(), order.end(), [&](int32_t a, int32_t b) { return rank(a) < rank(b); });

  std::vector<Contig> contigs;
  std::vector<std::string> m5;
  std::vector<int32_t> new_number(order.size());
  for (int32_t old_number : order) {
    new_number[old_number] = int32_t(contigs.size());
    contigs.push_back(contigs_[old_number]);
    m5.push_back(std::move(m5_[old_number]));
  }
  contigs_ = std::move(contigs);
  m5_ = std::move(m5);
  for (File& file : files_)
    for (int32_t& number : file.to_joined) number = new_number[number];
  indexContigs();
}

namespace {

[[noreturn]] void throwBadRead(const bam_record& record, const std::string& what, const std::string& path) {
  throw std::runtime_error(std::string("Read (") + record.name() + ") has " + what + " from " + path);
}

}  // namespace

const InputSet::Group& InputSet::groupOf(size_t index, const bam_record& record, std::string_view id) const {
  const File& file = files_[index];
  auto& recent = file.recent_groups[id.empty() ? 0 : uint8_t(id.back()) % file.recent_groups.size()];
  const auto* known = recent.load(std::memory_order_relaxed);
  if (known && known->first == id) return known->second;
  if (id.empty()) throwBadRead(record, "no readgroup", handles_[index]->path);
  auto found = file.groups.find(id);
  if (found == file.groups.end())
    throwBadRead(record, "a readgroup (" + std::string(id) + ") not present in the BAM header",
                 handles_[index]->path);
  recent.store(&*found, std::memory_order_relaxed);
  return found->second;
}

int32_t InputSet::translate(size_t index, bam_record& record) const {
  const File& file = files_[index];
  for (int32_t* number : {&record.ref_id, &record.next_ref_id}) {
    if (*number == -1) continue;
    if (uint32_t(*number) >= file.to_joined.size())
      throwBadRead(record, "an invalid contig number (" + std::to_string(*number) + ")",
                   handles_[index]->path);
    *number = file.to_joined[*number];
  }
  uint8_t* tag;
  const int tag_count = aux_find_checked(record, "RG", tag);
  // No reader could take such a record from an output either.
  if (tag_count < 0) throwBadRead(record, "corrupt aux data", handles_[index]->path);
  const bool is_text = tag && *tag == 'Z';
  const Group& group = groupOf(index, record, is_text ? aux_text(tag) : "");
  if (group.renamed || tag_count > 1) {
    // A second tag would be what readers that take the last one see.
    aux_delete_all(record, "RG");
    aux_append(record, "RG", 'Z', group.id.size() + 1, group.id.c_str());
  }
  return group.index;
}

InputSet::Program InputSet::chained(const FieldList& fields) const {
  std::unordered_set<std::string_view> ids, named;
  for (const Program& program : programs_) {
    ids.insert(program.id);
    named.insert(program.previous);
  }
  Program added;
  for (const Program& program : programs_)
    if (!program.id.empty() && (added.previous.empty() || !named.count(program.id)))
      added.previous = program.id;

  FieldList own = fields;
  for (auto& [key, value] : own) {
    std::replace_if(
        value.begin(), value.end(), [](unsigned char c) { return c < ' '; }, ' ');
    if (key != "ID") continue;
    added.id = value;
    for (int copy = 1; ids.count(added.id); copy++) added.id = value + "-dup-" + std::to_string(copy);
    value = added.id;
  }
  // In front of the command line, which some readers take to reach to the end of the line.
  if (!added.previous.empty()) own.insert(own.begin() + !own.empty(), {"PP", added.previous});
  added.line = headerLineText("@PG", own);
  return added;
}

std::string InputSet::headerText(const FieldList& program) const {
  std::string text = "@HD\tVN:1.5\tSO:coordinate\n";
  for (size_t i = 0; i < contigs_.size(); i++) {
    text += std::string("@SQ\tSN:") + contigs_[i].contig + "\tLN:" + std::to_string(contigs_[i].end);
    if (!m5_[i].empty()) text += "\tM5:" + m5_[i];
    text += '\n';
  }
  for (const ReadGroup& group : read_groups_) text += headerLineText("@RG", group.ordered) + '\n';
  for (const Program& known : programs_) text += known.line + '\n';
  if (!program.empty()) text += chained(program).line + '\n';
  for (const std::string& comment : comments_) text += comment + '\n';
  return text;
}

std::shared_ptr<const bam_header> InputSet::mergedHeader(const FieldList& program) const {
  auto header = std::make_shared<bam_header>();
  for (const Contig& contig : contigs_) {
    header->names.emplace_back(contig.contig);
    header->lengths.push_back(contig.end);
  }
  header->text = headerText(program);
  return header;
}
