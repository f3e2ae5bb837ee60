#include "algo/vcall/activity_profile.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>

#include "algo/vcall/read_window.h"
#include "base/bases.h"
#include "read_builder.h"

namespace {

constexpr uint32_t kMinBaseQual = 10, kMinMapQual = 20;

struct Reads {
  std::vector<std::unique_ptr<BAMRead>> owned;
  std::vector<Read*> all;

  void add(const ReadBuilder& builder, int32_t group = 0) {
    bam_record record = builder.build();
    owned.push_back(std::make_unique<BAMRead>());
    owned.back()->attach(record);
    owned.back()->read_group = group;
    all.push_back(owned.back().get());
  }
};

// What all reads say of one position, in the plainest way.
struct Expected {
  struct Sample {
    std::vector<double> sums, confidence;  // of at least two copies; of the ploidy
    int depth = 0;
  };
  std::vector<Sample> samples;
  bool mark = false;
  double clip_bases = 0, clips = 0;
};

double observed(bool matches, int quality, uint32_t n, uint32_t ploidy) {
  const double error = std::min(std::pow(10, -0.1 * quality), 0.75), share = double(n) / ploidy;
  const double right = 1 - error, wrong = error / 3;
  return std::log10((1 - share) * (matches ? right : wrong) + share * (matches ? wrong : right));
}

// One column per letter of the expanded CIGAR.
struct Column {
  char op;
  uint32_t place;
  int offset;
};

void count(Read& read, const ReferenceWindow& reference, std::vector<Expected>& expected, size_t sample,
           uint32_t ploidy) {
  if (read.mapq < kMinMapQual) return;
  const ReadWindow window = adapterFreeWindow(read);
  std::vector<Column> columns;
  uint32_t place = read.start;
  int offset = 0;
  const auto usable = [&](int at) { return read.quals[at] >= kMinBaseQual; };
  for (uint32_t i = 0; i < read.n_cigar; ++i)
    for (uint32_t n = 0; n < cigarLength(read.cigarWord(i)); ++n) {
      const char op = kCigarOps[cigarOp(read.cigarWord(i))];
      columns.push_back({strchr("=X", op) ? 'M' : op, place, offset});
      place += strchr("M=XDN", op) != nullptr;
      offset += strchr("M=XIS", op) != nullptr;
    }
  const bool pair = read.mate_start >= 0 && read.tlen != 0;
  for (size_t c = 0; c < columns.size(); ++c) {
    const Column& column = columns[c];
    if (!strchr("MD", column.op) || column.place < window.start || column.place >= window.end) continue;
    if (column.place >= expected.size()) continue;
    // To both sides up to the next aligned base: an indel, or else the usable bases of a clip.
    bool edge = false;
    Expected& at = expected[column.place];
    for (int step : {-1, 1}) {
      if (column.op == 'D') break;
      const bool cut = step < 0 ? column.place == window.start && window.start > read.start
                                : column.place + 1 == window.end && window.end < read.end;
      int bases = 0;
      bool end = true, indel = false;
      for (size_t d = c + size_t(step); d < columns.size(); d += size_t(step)) {
        if (columns[d].op == 'M') {
          end = false;
          break;
        }
        indel |= columns[d].op == 'I' || columns[d].op == 'D';
        bases += columns[d].op == 'S' && usable(columns[d].offset);
      }
      const bool adapter = pair && (step < 0 ? read.isReverse() && int64_t(read.start) <= read.mate_start
                                             : !read.isReverse() && read.end >= read.start + read.tlen);
      const bool clip = end && bases > 0 && !adapter && !cut;
      edge |= (indel && !cut) || clip;
      at.clip_bases += clip ? bases : 0;
      at.clips += clip;
    }
    const char ref = reference.at(column.place);
    if (!isBase(ref)) continue;
    const bool deleted = column.op == 'D';
    if (!deleted && (!usable(column.offset) || !isBase(read.getBases()[column.offset]))) continue;
    const bool equal = !deleted && read.getBases()[column.offset] == ref, matches = equal && !edge;
    const int quality =
        deleted ? 30 : std::min<int>(read.quals[column.offset], std::max<int>(read.mapq, kMinBaseQual));
    at.mark |= !matches;
    Expected::Sample& sums = at.samples[sample];
    ++sums.depth;
    for (uint32_t n = 0; n < sums.sums.size(); ++n)
      sums.sums[n] += observed(matches, quality, n, uint32_t(sums.sums.size() - 1));
    for (uint32_t n = 0; n <= ploidy; ++n) sums.confidence[n] += observed(equal, quality, n, ploidy);
  }
}

std::vector<double> limited(std::vector<double> row, int depth) {
  std::vector<double> cap;
  for (uint32_t n = 0; n < row.size(); ++n)
    cap.push_back(std::min(depth, 40) * observed(true, 30, n, uint32_t(row.size() - 1)));
  const auto lead = [](const std::vector<double>& r) {
    return r[0] - *std::max_element(r.begin() + 1, r.end());
  };
  return lead(row) > lead(cap) ? cap : row;
}

Reads randomReads(std::mt19937& rng, const std::string& reference, int fragments) {
  const char* const cigars[] = {"60M",
                                "5S30M3D20M5S",
                                "20M4I36M",
                                "25=2X10N33M",
                                "3H40M20S",
                                "2I30M1D10M3I15M2I",
                                "1S1M1D1M2I40M15S",
                                "30M2P1I1P29M",
                                "10M2D3I20M27S",
                                "4D30M",
                                "20S20M60D20M1N5M6D"};
  std::vector<std::pair<int, ReadBuilder>> made;
  for (int fragment = 0; fragment < fragments; ++fragment) {
    const int start = 20 + int(rng() % 300), distance = int(rng() % 90) - 20;
    const int tlen = std::max(distance + int(rng() % 70), 1);
    for (int end = 0; end < 2; ++end) {
      const int own = end ? start + distance : start, other = end ? start : start + distance;
      const Cigar cigar = parseCigar(cigars[rng() % 4 ? 0 : rng() % std::size(cigars)]);
      std::string letters;
      std::vector<uint8_t> quals;
      size_t place = size_t(own);
      for (uint32_t word : cigar)
        for (uint32_t i = 0; i < cigarLength(word); ++i) {
          if (consumesRead(word)) {
            letters += rng() % 30 == 0 ? "ACGTN"[rng() % 5] : reference[place];
            quals.push_back(rng() % 50 == 0 ? 255 : rng() % 3 ? 37 : uint8_t(rng() % 42));
          }
          place += consumesReference(word);
        }
      ReadBuilder read = readBuilder("f").at(0, own).cigar(cigar).seq(letters).quals(quals);
      const int mapqs[] = {60, 60, 60, 20, 19, 25};
      read.mapq(mapqs[rng() % 6]);
      if (rng() % 4) read.mate(0, other, end ? -tlen : tlen);
      if (end) read.flag(FLAG_SECOND | FLAG_REVERSE);
      made.emplace_back(own, read);
    }
  }
  std::stable_sort(made.begin(), made.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  Reads reads;
  for (const auto& [start, read] : made) reads.add(read, int32_t(rng() % 3));
  return reads;
}

TEST(ActivityProfile, IsTheSumOverBasesWhateverTheRegion) {
  std::mt19937 rng(4);
  const std::vector<int32_t> sample_of = {0, 1, 0};
  for (const uint32_t ploidy : {2u, 1u, 3u, 4u})
    for (const int fragments : {40, 1000}) {
      ReferenceWindow reference;
      for (int i = 0; i < 700; ++i) reference.bases += rng() % 40 ? "ACGT"[rng() % 4] : "NR"[rng() % 2];
      const Reads reads = randomReads(rng, reference.bases, fragments);
      const uint32_t wide = std::max(ploidy, 2u);
      Expected nothing;
      nothing.samples.assign(2, {std::vector<double>(wide + 1), std::vector<double>(ploidy + 1), 0});
      std::vector<Expected> expected(600, nothing);
      for (Read* read : reads.all)
        count(*read, reference, expected, size_t(sample_of[size_t(read->read_group)]), ploidy);

      ActivityProfile whole(2, ploidy, kMinBaseQual, kMinMapQual, true), part = whole;
      whole.build(reads.all, sample_of, reference, 0, 600);
      uint32_t start = 0, end = 0;
      int limits = 0, marks = 0;
      for (uint32_t p = 0; p < 600; ++p) {
        if (p == end) {
          start = end;
          end = std::min(start + 1 + uint32_t(rng() % 90), 600u);
          std::vector<Read*> there;
          for (Read* read : reads.all)
            if (read->start < end && read->end > start) there.push_back(read);
          part.build(there, sample_of, reference, start, end);
        }
        const Expected& e = expected[p];
        ASSERT_EQ(whole.isMarked(p), e.mark) << p;
        ASSERT_EQ(part.isMarked(p), e.mark) << p;
        ASSERT_DOUBLE_EQ(whole.meanSoftClip(p), e.clips ? e.clip_bases / e.clips : 0) << p;
        ASSERT_EQ(part.meanSoftClip(p), whole.meanSoftClip(p)) << p;
        marks += e.mark;
        for (size_t s = 0; s < 2; ++s) {
          const Expected::Sample& sample = e.samples[s];
          ASSERT_EQ(whole.depth(s, p), sample.depth) << p;
          ASSERT_EQ(part.depth(s, p), sample.depth) << p;
          const std::vector<double> row = limited(sample.sums, sample.depth);
          const std::vector<double> own = limited(sample.confidence, sample.depth);
          limits += row != sample.sums;
          for (uint32_t n = 0; n <= ploidy; ++n) {
            ASSERT_NEAR(whole.likelihoods(s, p)[n], own[n], 1e-8) << p << ' ' << n << ' ' << ploidy;
            ASSERT_EQ(part.likelihoods(s, p)[n], whole.likelihoods(s, p)[n]) << p;
          }
          GenotypeLikelihoods activity;
          whole.activityLikelihoods(s, p, activity);
          ASSERT_EQ(activity.gl.size(), sample.depth ? wide + 1 : 0) << p;
          const double best = *std::max_element(row.begin(), row.end());
          for (size_t n = 0; n < activity.gl.size(); ++n) {
            ASSERT_NEAR(activity.gl[n], row[n] - best, 0.05 + 1e-8) << p;
            ASSERT_NEAR(activity.gl[n] * 10, std::round(activity.gl[n] * 10), 1e-6) << p;
          }
        }
      }
      EXPECT_GT(marks, 100);
      EXPECT_TRUE(limits > 5 || fragments < 1000 || ploidy != 2);
    }
}

}  // namespace
