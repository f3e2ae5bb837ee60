#include "record_maker.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "base/text.h"

namespace {

constexpr uint64_t kReadStream = 0x10000, kArtefactStream = 0x20000;
constexpr uint32_t kMinMatch = 5;         // matched bases that an aligner wants beside an indel at a read end
constexpr uint32_t kMinAligned = 20;      // reference bases, below which a read counts as unmapped
constexpr uint32_t kSlipMargin = 12;      // bases kept between a slip of the polymerase and the read ends
constexpr uint64_t kDimerEvery = 4;       // of unmapped pairs, one has nothing but adapter
constexpr uint32_t kNearEnd = 10;         // cycles at either end of a read in which an artefact of ends shows
constexpr uint8_t kArtefactQuality = 25;  // at most, of a base that a strand or a read end distorts
constexpr char kBases[] = "ACGT";
constexpr const char* kAdapters[] = {"AGATCGGAAGAGCACACGTCTGAACTCCAGTCA",
                                     "AGATCGGAAGAGCGTCGTGTAGGGAAAGAGTGT"};

char complement(char base) {
  switch (base) {
    case 'A':
      return 'T';
    case 'C':
      return 'G';
    case 'G':
      return 'C';
    case 'T':
      return 'A';
    default:
      return 'N';
  }
}

void reverseComplement(std::string& bases) {
  std::reverse(bases.begin(), bases.end());
  for (char& base : bases) base = complement(base);
}

uint8_t baseCode(char base) {
  switch (base) {
    case 'A':
      return 1;
    case 'C':
      return 2;
    case 'G':
      return 4;
    case 'T':
      return 8;
    default:
      return 15;
  }
}

void appendRandom(std::string& bases, size_t size, Rng& rng) {
  while (bases.size() < size) bases += kBases[rng.below(4)];
}

}  // namespace

struct RecordMaker::Draft {
  const End* own;
  const End* mate;
  const Alignment* place;  // null for an unmapped read
  uint16_t flag;
  bool with_bases;
  const Alignment* other_part;  // of a split read, for the SA tag; else null
};

RecordMaker::RecordMaker(const SimulateOptions& options, const Genome& genome, const HaplotypeSet& haplotypes,
                         const std::vector<Artefact>& artefacts, const std::string& sample_name,
                         size_t sample)
    : options_(options),
      genome_(genome),
      haplotypes_(haplotypes),
      artefacts_(artefacts),
      quality_(options.error, options.read_length),
      stream_(kReadStream + sample),
      artefact_stream_(kArtefactStream + sample),
      name_start_("SIM01:" + std::to_string(sample + 1) + ":" + flowCell(sample) + ":") {
  for (int32_t group = 0; group < options.read_groups; ++group)
    groups_.push_back(groupName(sample_name, static_cast<size_t>(group)));
}

std::string RecordMaker::groupName(const std::string& sample_name, size_t group) {
  return sample_name + ".L" + std::to_string(group + 1);
}

std::string RecordMaker::flowCell(size_t sample) {
  return "HSIM" + std::to_string(sample + 1) + "XX";
}

void RecordMaker::make(const Fragment& fragment, std::vector<bam_record>& out) {
  Rng rng(options_.seed, stream_, fragment.serial);
  for (int at_end = 0; at_end < 2; ++at_end) readEnd(fragment, at_end, rng, ends_[at_end]);
  const End& first = ends_[fragment.first_at_end];
  const End& second = ends_[!fragment.first_at_end];
  writeEnd(fragment, first, second, true, rng, out);
  writeEnd(fragment, second, first, false, rng, out);
}

// --- bases and alignments of one end ---

void RecordMaker::readEnd(const Fragment& fragment, bool at_end, Rng& rng, End& end) {
  end.bases.clear();
  end.alignments.clear();
  auto length = static_cast<uint32_t>(options_.read_length);
  bool second = at_end != fragment.first_at_end;
  bool lost = fragment.kind == FragmentKind::kHalfMapped && fragment.lost_end == at_end;
  if (fragment.kind == FragmentKind::kUnmapped || lost) {
    if (fragment.kind == FragmentKind::kUnmapped && fragment.serial % kDimerEvery == 0) {
      ++counts_.adapter_dimers;
      end.bases.assign(kAdapters[second], 0, length);
    }
    appendRandom(end.bases, length, rng);
  } else {
    for (int i = 0; i < fragment.pieces && end.bases.size() < length; ++i) {
      const Piece& piece = fragment.piece[at_end ? fragment.pieces - 1 - i : i];
      uint32_t count = std::min(piece.length(), length - static_cast<uint32_t>(end.bases.size()));
      readPiece(fragment, piece, at_end, count, rng, end);
    }
    if (end.bases.size() < length) {
      ++counts_.adapter_reads;
      end.bases.append(kAdapters[second], 0, length - end.bases.size());
      appendRandom(end.bases, length, rng);
    }
  }
  quality_.apply(rng, second, end.bases, end.quals);
  if (!artefacts_.empty()) addArtefacts(fragment, second, end);
  uint32_t junk_start = 0, junk_end = 0;
  if (end.mapped() && rng.happens(options_.soft_clip)) addJunk(rng.oneIn(4), rng, end, junk_start, junk_end);
  finishAlignments(rng, end, junk_start, junk_end);
}

// Appends the next `count` bases of the read, which come from one end of `piece`.
void RecordMaker::readPiece(const Fragment& fragment, const Piece& piece, bool backwards, uint32_t count,
                            Rng& rng, End& end) {
  const Haplotype& haplotype = haplotypes_[fragment.haplotype][piece.contig];
  Alignment alignment;
  alignment.contig = piece.contig;
  alignment.reversed = piece.reversed != backwards;
  std::string bases;
  bool may_slip = options_.error != ErrorProfile::kPerfect && rng.oneIn(100);
  if (!may_slip || !slipped(haplotype, piece, alignment.reversed, count, rng, alignment, bases)) {
    uint32_t start = alignment.reversed ? piece.end - count : piece.start;
    alignment.start = haplotype.align(start, start + count, alignment.cigar);
    bases.assign(haplotype.bases(), start, count);
  }
  if (alignment.reversed) reverseComplement(bases);
  // The rest of the read, on either side, is clipped from this alignment.
  auto before = static_cast<uint32_t>(end.bases.size());
  uint32_t after = static_cast<uint32_t>(options_.read_length) - before - count;
  if (alignment.reversed) std::swap(before, after);
  Cigar whole;
  appendOp(whole, CIGAR_S, before);
  for (uint32_t word : alignment.cigar) appendOp(whole, CigarOp(cigarOp(word)), cigarLength(word));
  appendOp(whole, CIGAR_S, after);
  alignment.cigar = std::move(whole);
  end.bases += bases;
  end.alignments.push_back(std::move(alignment));
}

// A read with one base too many or too few, as sequencing makes them, mostly in homopolymers. False when it
// has no room for that, and then nothing has changed.
bool RecordMaker::slipped(const Haplotype& haplotype, const Piece& piece, bool reversed, uint32_t count,
                          Rng& rng, Alignment& alignment, std::string& bases) const {
  bool extra = rng.below(2);
  uint32_t window = extra ? count - 1 : count + 1;
  if (window > piece.length() || count < 4 * kSlipMargin) return false;
  uint32_t start = reversed ? piece.end - window : piece.start, end = start + window;
  const std::string& source = haplotype.bases();
  uint32_t at = start + kSlipMargin + rng.below(window - 2 * kSlipMargin);
  while (at > start + kSlipMargin && source[at - 1] == source[at]) --at;
  bool run = source[at] == source[at + 1] && source[at] == source[at + 2];
  if (!run && !rng.oneIn(4)) return false;
  uint32_t place = haplotype.toReference(at);
  if (haplotype.toReference(at - 1) + 1 != place || haplotype.toReference(at + 1) != place + 1) return false;
  alignment.start = haplotype.align(start, at, alignment.cigar);
  appendOp(alignment.cigar, extra ? CIGAR_I : CIGAR_D, 1);
  Cigar rest;
  haplotype.align(extra ? at : at + 1, end, rest);
  for (uint32_t word : rest) appendOp(alignment.cigar, CigarOp(cigarOp(word)), cigarLength(word));
  bases.assign(source, start, at - start);
  if (extra) bases += source[at];
  bases.append(source, extra ? at : at + 1, end - (extra ? at : at + 1));
  return true;
}

// Replaces one end of the read by random bases of the lowest quality.
void RecordMaker::addJunk(bool at_first_cycles, Rng& rng, End& end, uint32_t& at_start,
                          uint32_t& at_end) const {
  auto length = static_cast<uint32_t>(end.bases.size());
  uint32_t junk = std::min(length / 3, 4 + rng.below(36));
  uint32_t from = at_first_cycles ? 0 : length - junk;
  for (uint32_t i = from; i < from + junk; ++i) {
    end.bases[i] = kBases[rng.below(4)];
    end.quals[i] = QualityModel::kJunk;
  }
  (at_first_cycles ? at_start : at_end) = junk;
}

void RecordMaker::addArtefacts(const Fragment& fragment, bool second, End& end) const {
  auto length = static_cast<uint32_t>(end.bases.size());
  for (const Alignment& alignment : end.alignments) {
    auto next = std::partition_point(artefacts_.begin(), artefacts_.end(), [&](const Artefact& artefact) {
      return std::pair(artefact.site.contig, artefact.site.start) <
             std::pair(alignment.contig, alignment.start);
    });
    uint32_t place = alignment.start, offset = 0;
    for (uint32_t word : alignment.cigar) {
      uint32_t end_place = place + (consumesReference(word) ? cigarLength(word) : 0);
      for (;
           next != artefacts_.end() && next->site.contig == alignment.contig && next->site.start < end_place;
           ++next) {
        if (!consumesRead(word)) continue;  // deleted in this read
        uint32_t at = offset + (next->site.start - place);
        if (alignment.reversed) at = length - 1 - at;
        char ref = next->site.ref[0], alt = next->site.alts[0][0];
        if (end.bases[at] != (alignment.reversed ? complement(ref) : ref) ||
            !shows(*next, fragment, second, alignment.reversed, std::min(at, length - 1 - at)))
          continue;
        end.bases[at] = alignment.reversed ? complement(alt) : alt;
        if (next->kind != ArtefactKind::kOxidation) end.quals[at] = std::min(end.quals[at], kArtefactQuality);
      }
      if (consumesRead(word)) offset += cigarLength(word);
      place = end_place;
    }
  }
}

// Whether a read shows an artefact that it covers `from_end` bases from its nearer end.
bool RecordMaker::shows(const Artefact& artefact, const Fragment& fragment, bool second, bool reversed,
                        uint32_t from_end) const {
  uint64_t item = 2 * fragment.serial + second;
  if (artefact.kind == ArtefactKind::kOxidation) {
    // The first read of a molecule with an oxidized G on its strand reads T; C for G when the strand is reverse.
    bool first_is_reverse = second != reversed;
    if ((artefact.site.ref[0] == 'C') != first_is_reverse) return false;
    item = 2 * fragment.molecule;
  } else if (artefact.kind == ArtefactKind::kStrand ? reversed != artefact.reversed : from_end >= kNearEnd) {
    return false;
  }
  auto number = static_cast<uint64_t>(&artefact - artefacts_.data());
  Rng rng(options_.seed, artefact_stream_, item << 32 | number);
  return rng.happens(artefact.chance);
}

void RecordMaker::finishAlignments(Rng& rng, End& end, uint32_t junk_start, uint32_t junk_end) {
  for (Alignment& alignment : end.alignments) {
    uint32_t left = alignment.reversed ? junk_end : junk_start,
             right = alignment.reversed ? junk_start : junk_end;
    softClipStart(alignment.cigar, left, kMinMatch, alignment.start);
    softClipEnd(alignment.cigar, right, kMinMatch);
    if (!hasOp(alignment.cigar, CIGAR_M) || referenceLength(alignment.cigar) < kMinAligned)
      alignment.cigar.clear();
  }
  std::erase_if(end.alignments, [](const Alignment& alignment) { return alignment.cigar.empty(); });
  if (end.alignments.size() == 2 &&
      referenceLength(end.alignments[1].cigar) > referenceLength(end.alignments[0].cigar))
    std::swap(end.alignments[0], end.alignments[1]);
  for (Alignment& alignment : end.alignments) {
    const GenomeContig& contig = genome_.contigs[alignment.contig];
    if (contig.repeatAround(alignment.start, alignment.end()) != nullptr)
      alignment.mapq = static_cast<uint8_t>(rng.below(10) < 7 ? 0 : 1 + rng.below(30));
    else
      alignment.mapq = static_cast<uint8_t>(rng.below(100) < 92 ? 60 : 1 + rng.below(59));
    orient(end, alignment.reversed);
    findDifferences(alignment.cigar, oriented_.data(), contig.bases.data() + alignment.start,
                    alignment.differences);
  }
}

void RecordMaker::orient(const End& end, bool reversed) {
  oriented_ = end.bases;
  if (reversed) reverseComplement(oriented_);
}

// --- records ---

namespace {

uint32_t fivePrime(uint32_t start, uint32_t end, bool reversed) {
  return reversed ? end - 1 : start;
}

}  // namespace

// The same read in the other copy of the repeat that its primary alignment lies in.
bool RecordMaker::secondaryOf(const End& end, Rng& rng, Alignment& other) {
  const Alignment& primary = end.alignments[0];
  if (primary.mapq > 0) return false;
  const RepeatCopy* copy = genome_.contigs[primary.contig].repeatAround(primary.start, primary.end());
  if (copy == nullptr || !options_.contigHasReads(copy->other_contig) || rng.oneIn(2)) return false;
  other = primary;
  other.contig = copy->other_contig;
  other.start = copy->other_start + (primary.start - copy->here.start);
  orient(end, other.reversed);
  findDifferences(other.cigar, oriented_.data(), genome_.contigs[other.contig].bases.data() + other.start,
                  other.differences);
  return true;
}

void RecordMaker::writeEnd(const Fragment& fragment, const End& own, const End& mate, bool first, Rng& rng,
                           std::vector<bam_record>& out) {
  uint16_t flag = FLAG_PAIRED | (first ? FLAG_FIRST : FLAG_SECOND);
  if (fragment.qc_fail) flag |= FLAG_QC_FAIL;
  if (fragment.is_copy && options_.flag_duplicates && (own.mapped() || mate.mapped())) flag |= FLAG_DUPLICATE;
  if (!mate.mapped())
    flag |= FLAG_MATE_UNMAPPED;
  else if (mate.alignments[0].reversed)
    flag |= FLAG_MATE_REVERSE;
  if (!own.mapped()) {
    encode(fragment, {&own, &mate, nullptr, static_cast<uint16_t>(flag | FLAG_UNMAPPED), true, nullptr}, out);
    return;
  }
  const Alignment* primary = &own.alignments[0];
  const Alignment* part = own.alignments.size() > 1 ? &own.alignments[1] : nullptr;
  encode(fragment, {&own, &mate, primary, flag, true, part}, out);
  if (part != nullptr)
    encode(fragment, {&own, &mate, part, static_cast<uint16_t>(flag | FLAG_SUPPLEMENTARY), true, primary},
           out);
  Alignment other;
  if (secondaryOf(own, rng, other)) {
    bool with_bases = rng.below(2);
    encode(fragment, {&own, &mate, &other, static_cast<uint16_t>(flag | FLAG_SECONDARY), with_bases, nullptr},
           out);
  }
}

namespace {

void putText(std::vector<uint8_t>& data, const char* tag, std::string_view text) {
  data.insert(data.end(), tag, tag + 2);
  data.push_back('Z');
  data.insert(data.end(), text.begin(), text.end());
  data.push_back(0);
}

// An unsigned number, in the smallest type that holds it.
void putNumber(std::vector<uint8_t>& data, const char* tag, uint32_t value) {
  data.insert(data.end(), tag, tag + 2);
  int bytes = value < 256 ? 1 : value < 65536 ? 2 : 4;
  data.push_back(bytes == 1 ? 'C' : bytes == 2 ? 'S' : 'I');
  for (int i = 0; i < bytes; ++i) data.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

std::string cigarText(const Cigar& cigar) {
  std::string text;
  for (uint32_t word : cigar) {
    text += std::to_string(cigarLength(word));
    text += kCigarOps[cigarOp(word)];
  }
  return text;
}

}  // namespace

void RecordMaker::encode(const Fragment& fragment, const Draft& draft, std::vector<bam_record>& out) {
  const Alignment* place = draft.place;
  const Alignment* mate = draft.mate->mapped() ? &draft.mate->alignments[0] : nullptr;
  // An unmapped read goes where its mate is.
  const Alignment* shown = place != nullptr ? place : mate;
  const Alignment* mate_shown = mate != nullptr       ? mate
                                : draft.own->mapped() ? &draft.own->alignments[0]
                                                      : nullptr;
  bam_record record;
  record.flag = draft.flag;
  record.mapq = place != nullptr ? place->mapq : 0;
  record.ref_id = shown != nullptr ? static_cast<int32_t>(shown->contig) : -1;
  record.pos = shown != nullptr ? static_cast<int32_t>(shown->start) : -1;
  record.next_ref_id = mate_shown != nullptr ? static_cast<int32_t>(mate_shown->contig) : -1;
  record.next_pos = mate_shown != nullptr ? static_cast<int32_t>(mate_shown->start) : -1;
  if (shown != nullptr) record.bin = bin_of(shown->start, place != nullptr ? place->end() : shown->start + 1);
  if (place != nullptr && place->reversed) record.flag |= FLAG_REVERSE;
  if (place != nullptr && mate != nullptr && place->contig == mate->contig) {
    int64_t own_five = fivePrime(place->start, place->end(), place->reversed);
    int64_t mate_five = fivePrime(mate->start, mate->end(), mate->reversed);
    int64_t distance = mate_five - own_five;
    record.tlen = static_cast<int32_t>(distance + (distance > 0) - (distance < 0));
    int64_t forward = place->reversed ? mate_five : own_five,
            backward = place->reversed ? own_five : mate_five;
    bool proper = place->reversed != mate->reversed && backward >= forward &&
                  backward - forward < options_.insert_mean + 5 * options_.insert_sd;
    if (proper) record.flag |= FLAG_PROPER_PAIR;
  }

  bool hard = record.flag & (FLAG_SUPPLEMENTARY | FLAG_SECONDARY);
  Cigar cigar = place == nullptr ? Cigar() : hard ? withClips(place->cigar, CIGAR_H) : place->cigar;
  data_.clear();
  const Cluster& cluster = fragment.cluster;
  std::string name = name_start_ + std::to_string(cluster.group + 1) + ':' + std::to_string(cluster.tile) +
                     ':' + std::to_string(cluster.x) + ':' + std::to_string(cluster.y);
  data_.insert(data_.end(), name.c_str(), name.c_str() + name.size() + 1);
  record.l_read_name = static_cast<uint8_t>(name.size() + 1);
  record.n_cigar = static_cast<uint16_t>(cigar.size());
  for (uint32_t word : cigar)
    for (int i = 0; i < 4; ++i) data_.push_back(static_cast<uint8_t>(word >> (8 * i)));
  if (draft.with_bases) {
    bool reversed = place != nullptr && place->reversed;
    orient(*draft.own, reversed);
    uint32_t from = hard ? clipAtStart(place->cigar) : 0;
    auto to = static_cast<uint32_t>(oriented_.size()) - (hard ? clipAtEnd(place->cigar) : 0);
    for (uint32_t i = from; i < to; i += 2)
      data_.push_back(
          static_cast<uint8_t>(baseCode(oriented_[i]) << 4 | (i + 1 < to ? baseCode(oriented_[i + 1]) : 0)));
    const std::vector<uint8_t>& quals = draft.own->quals;
    for (uint32_t i = from; i < to; ++i) data_.push_back(quals[reversed ? quals.size() - 1 - i : i]);
    record.l_seq = static_cast<int32_t>(to - from);
  }

  size_t aux_begin = data_.size();
  if (place != nullptr) {
    putNumber(data_, "NM", static_cast<uint32_t>(place->differences.edit_distance));
    putText(data_, "MD", place->differences.text);
  }
  if (mate != nullptr) {
    putText(data_, "MC", cigarText(mate->cigar));
    putNumber(data_, "MQ", mate->mapq);
  }
  if (draft.other_part != nullptr) {
    const Alignment& other = *draft.other_part;
    putText(data_, "SA",
            genome_.contigs[other.contig].name + ',' + std::to_string(other.start + 1) + ',' +
                (other.reversed ? '-' : '+') + ',' + cigarText(other.cigar) + ',' +
                std::to_string(other.mapq) + ',' + std::to_string(other.differences.edit_distance) + ';');
  }
  putText(data_, "RG", groups_[cluster.group]);

  record.l_aux = static_cast<int32_t>(data_.size() - aux_begin);
  record.growData(data_.size());
  memcpy(record.data, data_.data(), data_.size());
  record.data_len = static_cast<int32_t>(data_.size());
  out.push_back(std::move(record));
}
