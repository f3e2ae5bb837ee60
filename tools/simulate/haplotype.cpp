#include "haplotype.h"

#include <algorithm>
#include <cassert>

#include "cigar_edit.h"

Haplotype::Haplotype(const GenomeContig& contig, uint32_t contig_number, const std::vector<Site>& sites,
                     const std::vector<uint8_t>& alleles) {
  bases_.reserve(contig.bases.size());
  blocks_.push_back({0, 0, 0});
  uint32_t ref_done = 0;
  auto copyTo = [&](uint32_t ref_end) {
    bases_.append(contig.bases, ref_done, ref_end - ref_done);
    blocks_.back().length += ref_end - ref_done;
    ref_done = ref_end;
  };
  auto first = std::lower_bound(sites.begin(), sites.end(), contig_number,
                                [](const Site& site, uint32_t number) { return site.contig < number; });
  for (auto site = first; site != sites.end() && site->contig == contig_number; ++site) {
    uint8_t allele = alleles[site - sites.begin()];
    if (allele == 0) continue;
    AlleleChange change = trimAllele(*site, allele - 1);
    copyTo(change.start);
    size_t both = std::min(change.ref.size(), change.alt.size());
    bases_.append(change.alt);
    blocks_.back().length += both;
    ref_done += change.ref.size();
    if (change.ref.size() != change.alt.size())
      blocks_.push_back({static_cast<uint32_t>(bases_.size()), ref_done, 0});
  }
  copyTo(contig.length());
}

size_t Haplotype::blockAt(uint32_t hap_place) const {
  auto next = std::upper_bound(blocks_.begin(), blocks_.end(), hap_place,
                               [](uint32_t place, const Block& block) { return place < block.hap_start; });
  assert(next != blocks_.begin());
  return static_cast<size_t>(next - blocks_.begin()) - 1;
}

uint32_t Haplotype::fromReference(uint32_t ref_place) const {
  auto next = std::upper_bound(blocks_.begin(), blocks_.end(), ref_place,
                               [](uint32_t place, const Block& block) { return place < block.ref_start; });
  assert(next != blocks_.begin());
  const Block& block = *(next - 1);
  uint32_t offset = ref_place - block.ref_start;
  if (offset < block.length || next == blocks_.end()) return block.hap_start + std::min(offset, block.length);
  return next->hap_start;
}

uint32_t Haplotype::toReference(uint32_t hap_place) const {
  size_t number = blockAt(hap_place);
  const Block& block = blocks_[number];
  uint32_t offset = hap_place - block.hap_start;
  if (offset < block.length || number + 1 == blocks_.size())
    return block.ref_start + std::min(offset, block.length);
  return blocks_[number + 1].ref_start;
}

uint32_t Haplotype::align(uint32_t start, uint32_t end, Cigar& cigar) const {
  assert(start < end && end <= bases_.size());
  uint32_t ref_start = toReference(start);
  uint32_t at = start;
  for (size_t number = blockAt(start); at < end; ++number) {
    const Block& block = blocks_[number];
    uint32_t block_end = block.hap_start + block.length;
    if (at < block_end) {
      uint32_t stop = std::min(end, block_end);
      appendOp(cigar, CIGAR_M, stop - at);
      at = stop;
    }
    if (at == end) break;
    const Block& next = blocks_[number + 1];
    uint32_t stop = std::min(end, next.hap_start);
    appendOp(cigar, CIGAR_I, stop - at);
    at = stop;
    if (at < end) appendOp(cigar, CIGAR_D, next.ref_start - (block.ref_start + block.length));
  }
  return ref_start;
}
