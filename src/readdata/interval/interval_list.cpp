#include "readdata/interval/interval_list.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "base/text.h"
#include "readdata/interval/merge_sorted.h"

bool IntervalList::add_strings(const char* text) {
  for (std::string& item : split(text, ',')) {
    Interval interval;
    if (!parse_interval(item.data(), interval)) {
      fprintf(stderr, "Failed to parse interval string %s\n", item.c_str());
      return false;
    }
    addInterval(interval);
  }
  countEntries();
  return true;
}

uint32_t IntervalList::registerContig(const char* name) {
  auto [place, fresh] = contig_index_.try_emplace(name, static_cast<uint32_t>(contig_index_.size()));
  if (fresh) per_contig_.emplace_back();
  return place->second;
}

void IntervalList::addEntry(IntervalEntry entry) {
  auto place = contig_index_.find(entry.contig);
  entry.contig = place->first.c_str();
  per_contig_[place->second].push_back(std::move(entry));
}

void IntervalList::addInterval(const Interval& interval) {
  if (!*interval.contig) return;
  registerContig(interval.contig);
  IntervalEntry entry;
  static_cast<Interval&>(entry) = interval;
  addEntry(std::move(entry));
}

void IntervalList::countEntries() {
  total_ = 0;
  for (const auto& entries : per_contig_) total_ += entries.size();
}

void IntervalList::pad(int64_t amount) {
  const uint64_t top = 0xFFFFFFFF;
  const bool grow = amount > 0;
  const uint64_t by = std::min(grow ? uint64_t(amount) : 0 - uint64_t(amount), top);
  auto less = [by](uint32_t place) { return static_cast<uint32_t>(place < by ? 0 : place - by); };
  auto more = [by, top](uint32_t place) { return static_cast<uint32_t>(std::min(place + by, top)); };
  for (auto& entries : per_contig_) {
    for (IntervalEntry& entry : entries) {
      if (entry.start >= entry.end) continue;
      entry.start = grow ? less(entry.start) : more(entry.start);
      entry.end = grow ? more(entry.end) : less(entry.end);
    }
  }
}

void IntervalList::merge() {
  for (auto& entries : per_contig_) {
    mergeSorted(entries, [](IntervalEntry& kept, IntervalEntry& merged) {
      if (merged.name.empty()) return;
      if (!kept.name.empty()) kept.name += '|';
      kept.name += merged.name;
    });
  }
  countEntries();
}

bool IntervalList::check_contigs(const std::vector<Contig>& contigs, bool relaxed) const {
  if (header_contigs_.empty()) return true;
  return relaxed ? checkReadContigs(contigs) : checkReferenceContigs(contigs);
}

bool IntervalList::checkReferenceContigs(const std::vector<Contig>& contigs) const {
  if (header_contigs_.size() != contigs.size()) {
    fprintf(stderr, "interval list header and ref contigs have different number of contigs, %ld vs %ld\n",
            long(header_contigs_.size()), long(contigs.size()));
    return false;
  }
  for (size_t i = 0; i < contigs.size(); ++i) {
    const Contig &mine = header_contigs_[i], &other = contigs[i];
    if (strcmp(mine.contig, other.contig) != 0) {
      fprintf(stderr,
              "interval list header and ref contigs have different contig name for contig %d, %s vs %s\n",
              int(i), mine.contig, other.contig);
      return false;
    }
    if (mine.end != other.end) {
      fprintf(stderr, "interval list header and ref contigs have different length for contig %s, %u vs %u\n",
              mine.contig, mine.end, other.end);
      return false;
    }
  }
  return true;
}

bool IntervalList::checkReadContigs(const std::vector<Contig>& contigs) const {
  uint32_t before = 0;
  for (const Contig& other : contigs) {
    auto place = contig_index_.find(other.contig);
    // Contigs that add_strings() brought come behind those of the header.
    if (place == contig_index_.end() || place->second >= header_contigs_.size()) {
      fprintf(stderr, "Contig %s in bam files is not in interval list file header\n", other.contig);
      return false;
    }
    if (place->second < before) {
      fprintf(stderr, "Contig %s in bam files is out of order compared to interval list file header\n",
              other.contig);
      return false;
    }
    if (header_contigs_[place->second].end != other.end) {
      fprintf(stderr, "Contig %s in bam file has different size then in the interval list file header\n",
              other.contig);
      return false;
    }
    before = place->second;
  }
  return true;
}

void IntervalList::append_to(IntervalMap& map) const {
  for (const auto& entries : per_contig_) {
    for (const IntervalEntry& entry : entries) {
      auto place = map.try_emplace(entry.contig).first;
      place->second.push_back({place->first.c_str(), entry.start, entry.end});
    }
  }
}

const std::vector<std::vector<IntervalEntry>>& IntervalList::targets() const {
  if (kind_ != kPicard) throw std::runtime_error("Interval list has no target information");
  return per_contig_;
}
