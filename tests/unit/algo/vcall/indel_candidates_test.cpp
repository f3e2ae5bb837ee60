#include "algo/vcall/indel_candidates.h"

#include <deque>
#include <gmock/gmock.h>
#include <random>
#include <set>

#include "algo/vcall/read_window.h"
#include "read_builder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Candidates = std::map<uint32_t, std::vector<std::string>>;  // position: REF, ALT, ...

struct IndelCandidatesTest : testing::Test {
  std::mt19937 random{1};
  std::string contig;
  std::deque<bam_record> records;
  std::deque<BAMRead> reads;
  std::vector<std::vector<Read*>> samples{1};

  uint32_t number(uint32_t from, uint32_t to) {
    return std::uniform_int_distribution<uint32_t>(from, to)(random);
  }
  std::string letters(size_t count, const char* alphabet = "ACGT") {
    std::string text;
    while (count-- > 0) text += alphabet[number(0, uint32_t(strlen(alphabet)) - 1)];
    return text;
  }
  void add(uint32_t start, const std::string& cigar, const std::string& bases, size_t sample = 0,
           int mapq = 60) {
    reads.emplace_back();
    records.push_back(readBuilder("r").at(0, int32_t(start)).cigar(cigar).seq(bases).mapq(mapq));
    reads.back().attach(records.back());
    samples[sample].push_back(&reads.back());
  }
  // A read with one insertion (or, with a number, deletion) before `place`, `left` and `right` bases to its sides.
  void insertion(uint32_t place, const std::string& text, int times = 1, uint32_t left = 20,
                 uint32_t right = 20) {
    while (times-- > 0)
      add(place - left,
          std::to_string(left) + "M" + std::to_string(text.size()) + "I" + std::to_string(right) + "M",
          contig.substr(place - left, left) + text + contig.substr(place, right));
  }
  void deletion(uint32_t place, uint32_t count, int times = 1, size_t sample = 0) {
    while (times-- > 0)
      add(place - 20, "20M" + std::to_string(count) + "D20M",
          contig.substr(place - 20, 20) + contig.substr(place + count, 20), sample);
  }
  void plain(uint32_t start, uint32_t length, int times, size_t sample = 0) {
    while (times-- > 0) add(start, std::to_string(length) + "M", contig.substr(start, length), sample);
  }

  Candidates find(uint32_t start, uint32_t end) {
    const uint32_t length = uint32_t(contig.size());
    start = std::min(start, length), end = std::min(end, length);
    std::vector<std::vector<Read*>> within(samples.size());
    for (size_t s = 0; s < samples.size(); ++s)
      for (Read* read : samples[s])
        if (read->start < end + 1 && read->end > start) within[s].push_back(read);
    ReferenceWindow window;
    window.start = start > 200 ? start - 200 : 0;
    window.bases = contig.substr(window.start, std::min(length, end + 200) - window.start);
    Candidates found;
    for (auto& [position, places] : IndelCandidates(17).find(within, window, start, end)) {
      EXPECT_EQ(places.size(), 1u);
      found[position].push_back(places[0].ref);
      for (std::string& alt : places[0].alts) found[position].push_back(alt);
    }
    return found;
  }
  Candidates find() { return find(0, uint32_t(contig.size())); }
};

TEST_F(IndelCandidatesTest, CountsAndShareAtTheirLimits) {
  contig = letters(100) + "ACGTTGCAGTCA" + letters(300);
  deletion(106, 3, 4);
  EXPECT_THAT(find(), IsEmpty());
  deletion(106, 3);
  const Candidates one{{104, {"TGCA", "T"}}};
  EXPECT_EQ(find(), one);
  plain(90, 40, 15);  // 5 of 20
  EXPECT_EQ(find(), one);
  plain(90, 40, 1);
  EXPECT_THAT(find(), IsEmpty());
  samples.resize(2);
  deletion(106, 3, 1, 1);  // in this sample a quarter, but one read
  EXPECT_THAT(find(), IsEmpty());
  deletion(106, 3, 4, 1);
  EXPECT_EQ(find(), one);
}

TEST_F(IndelCandidatesTest, OneIndelAtManyPlacesOfARepeat) {
  contig = letters(120) + "GCACACACACT" + letters(200);
  for (uint32_t i = 0; i < 4; ++i) deletion(121 + 2 * i, 2), insertion(122 + 2 * i, "AC");
  insertion(123, "CA"), deletion(122, 2), deletion(121, 4, 5);
  EXPECT_EQ(find(), (Candidates{{120, {"GCACA", "G", "GCA", "GCACACA"}}}));
}

TEST_F(IndelCandidatesTest, ContigEndsLettersQualitiesAndSpans) {
  contig = "A" + letters(79, "AC") + "TG" + letters(300, "AC") + "G" + letters(79, "AC");
  insertion(80, "G", 5, 60);  // behind base 79
  insertion(81, "C", 5);      // behind base 80
  insertion(382, "TT", 5);    // behind the last but 80
  insertion(383, "TT", 5);
  insertion(200, "GN", 5);
  EXPECT_EQ(find(),
            (Candidates{{80, {"T", "TC"}}, {381, {contig.substr(381, 1), contig.substr(381, 1) + "TT"}}}));
  records.clear(), reads.clear(), samples.assign(1, {});
  insertion(200, std::string(100, 'G') + std::string(100, 'T'), 9);
  for (int i = 0; i < 9; ++i)
    add(240, "20M2I20M", contig.substr(240, 20) + "GG" + contig.substr(260, 20), 0, 16);
  for (int i = 0; i < 9; ++i)
    add(300, "2I20M", "GG" + contig.substr(300, 20));               // an end without anything before it
  for (int i = 0; i < 9; ++i) add(430, "20M900D20M", letters(40));  // beyond the contig
  EXPECT_THAT(find(), IsEmpty());
}

TEST_F(IndelCandidatesTest, ClipsCountForTheInsertionsTheyFit) {
  contig = letters(149, "AC") + "C" + "TTTTA" + letters(200, "AC");
  const std::string text = "TTGATTGG";  // aligners go on for two bases
  auto with = [&](auto clips) {
    records.clear(), reads.clear(), samples.assign(1, {});
    insertion(150, text, 3);
    insertion(150, "GGG", 2);
    clips();
    return find().size();
  };
  auto right = [&](const std::string& bases) {
    add(130, "22M" + std::to_string(bases.size()) + "S", contig.substr(130, 22) + bases);
  };
  auto left = [&](const std::string& bases) {
    add(150, std::to_string(bases.size()) + "S20M", bases + contig.substr(150, 20));
  };
  EXPECT_EQ(with([&] { right("G"), right("GATTGGTTTTA"); }), 1u);
  EXPECT_EQ(with([&] { left("GG"), left(contig.substr(140, 10) + text); }), 1u);
  EXPECT_EQ(with([&] { left("GG"), left("T" + contig.substr(142, 8) + text); }), 1u);
  EXPECT_EQ(with([&] { left("GG"), left("TT" + text); }), 0u);
  EXPECT_EQ(with([&] { right("G"), right("GATTGC"); }), 0u);
  EXPECT_EQ(with([&] { right("G"), right("A"); }), 0u);
  // Clips of one text that fit nothing are an allele once they are enough.
  EXPECT_EQ(with([&] {
              for (int i = 0; i < 5; ++i) left("CAGTG");
            }),
            1u);
  EXPECT_THAT(find()[149], ElementsAre("C", "CCAGTG"));
  EXPECT_EQ(with([&] {
              for (int i = 0; i < 9; ++i) left(""), add(130, "20M0S", contig.substr(130, 20));
            }),
            0u);
}

// Reads that carry some of a few indels of one reference, each put at any of its places.
struct RandomReads : IndelCandidatesTest {
  struct Event {
    uint32_t place, deleted;
    std::string inserted;
  };
  void make(uint32_t length, size_t events, int count) {
    while (contig.size() < length) {
      const std::string unit = letters(number(1, 3));
      for (uint32_t n = number(0, 9); n > 0; --n) contig += unit;
      contig += letters(number(1, 12));
    }
    std::vector<Event> all;
    for (size_t i = 0; i < events; ++i) {
      const uint32_t place = number(60, uint32_t(contig.size()) - 90);
      const bool deletes = number(0, 1);
      const uint32_t size = number(1, 6);
      all.push_back({place, deletes ? size : 0,
                     deletes        ? ""
                     : number(0, 1) ? contig.substr(place, size)
                                    : letters(size)});
    }
    samples.resize(2);
    for (int i = 0; i < count; ++i) {
      const uint32_t start = number(0, uint32_t(contig.size()) - 150);
      std::string bases, cigar;
      uint32_t at = start, matched = 0;
      auto match = [&](uint32_t to) { bases += contig.substr(at, to - at), matched += to - at, at = to; };
      auto flush = [&] { cigar += matched > 0 ? std::to_string(matched) + "M" : "", matched = 0; };
      if (number(0, 5) == 0) bases = letters(number(1, 9)), cigar = std::to_string(bases.size()) + "S";
      std::sort(all.begin(), all.end(), [](auto& a, auto& b) { return a.place < b.place; });
      for (Event event : all) {
        if (event.place <= at || event.place > start + 100 || number(0, 2) == 0) continue;
        for (uint32_t moves = number(0, 5); moves > 0; --moves) {  // to the right, if it stays the same
          if (event.deleted > 0 && contig[event.place] == contig[event.place + event.deleted])
            ++event.place;
          else if (event.deleted == 0 && event.inserted[0] == contig[event.place])
            std::rotate(event.inserted.begin(), event.inserted.begin() + 1, event.inserted.end()),
                ++event.place;
        }
        match(event.place), flush();
        cigar +=
            event.deleted ? std::to_string(event.deleted) + "D" : std::to_string(event.inserted.size()) + "I";
        bases += event.inserted, at += event.deleted;
      }
      match(std::max(at + 1, start + 110)), flush();
      if (number(0, 5) == 0) {
        const std::string clip = letters(number(1, 9));
        bases += clip, cigar += std::to_string(clip.size()) + "S";
      }
      add(start, cigar, bases, number(0, 1), int(number(12, 60)));
    }
    for (auto& sample : samples)
      std::sort(sample.begin(), sample.end(), [](Read* a, Read* b) { return a->start < b->start; });
  }

  // The first place at which the same change gives the same contig.
  std::tuple<uint32_t, uint32_t, std::string> normal(uint32_t place, uint32_t deleted,
                                                     const std::string& text) {
    auto changed = [&](uint32_t p, const std::string& t) {
      return contig.substr(0, p) + t + contig.substr(p + deleted);
    };
    const std::string want = changed(place, text);
    for (uint32_t p = 0;; ++p) {
      const std::string t = want.substr(p, text.size());
      if (changed(p, t) == want) return {p - 1, deleted, t};
    }
  }
};

TEST_F(RandomReads, AgreeWithAPlainCount) {
  make(900, 12, 300);
  for (auto& sample : samples)  // clips have a test of their own
    std::erase_if(sample, [](Read* read) { return read->cigarString().find('S') != std::string::npos; });
  std::map<uint32_t, std::map<std::pair<uint32_t, std::string>, uint32_t>> counts;
  std::map<std::pair<uint32_t, bool>, uint32_t> totals;
  for (auto& sample : samples) {
    std::map<uint32_t, std::map<std::pair<uint32_t, std::string>, uint32_t>> own;
    std::map<uint32_t, uint32_t> covered, events;
    for (Read* read : sample) {
      if (read->mapq < 17) continue;
      for (uint32_t p = read->start; p < read->end; ++p) ++covered[p];
      uint32_t place = read->start, offset = 0;
      for (uint32_t i = 0; i < read->n_cigar; ++i) {
        const uint32_t op = cigarOp(read->cigarWord(i)), length = cigarLength(read->cigarWord(i));
        if (op != CIGAR_M) {
          const auto [anchor, deleted, text] =
              normal(place, op == CIGAR_D ? length : 0,
                     op == CIGAR_I ? std::string(read->getBases() + offset, length) : "");
          if (anchor >= read->start)
            ++own[anchor][{deleted, text}], ++events[anchor], ++totals[{anchor, deleted > 0}];
        }
        if (op != CIGAR_I) place += length;
        if (op != CIGAR_D) offset += length;
      }
    }
    for (auto& [anchor, alleles] : own)
      if (!(0.25 * covered[anchor] > events[anchor]))
        for (auto& [allele, count] : alleles) counts[anchor][allele] += count;
  }
  Candidates want;
  for (auto& [anchor, alleles] : counts) {
    if (totals[{anchor, true}] < 5 && totals[{anchor, false}] < 5) continue;
    if (anchor < 80 || anchor >= contig.size() - 80) continue;
    uint32_t longest = 0;
    std::set<std::pair<size_t, std::string>> alts;
    for (auto& [allele, count] : alleles)
      if (count >= 5) longest = std::max(longest, allele.first);
    for (auto& [allele, count] : alleles) {
      std::string alt =
          contig[anchor] + allele.second + contig.substr(anchor + 1 + allele.first, longest - allele.first);
      if (count >= 5) alts.emplace(alt.size(), alt);
    }
    if (alts.empty()) continue;
    want[anchor] = {contig.substr(anchor, 1 + longest)};
    for (auto& alt : alts) want[anchor].push_back(alt.second);
  }
  EXPECT_GT(want.size(), 4u);
  EXPECT_EQ(find(), want);
}

TEST_F(RandomReads, ComeOutTheSameHoweverTheContigIsCut) {
  make(2500, 60, 1500);
  const Candidates whole = find();
  EXPECT_GT(whole.size(), 20u);
  for (int round = 0; round < 20; ++round) {
    Candidates pieces;
    const uint32_t longest = round < 10 ? 40 : 900;
    for (uint32_t start = 0, end; start < contig.size(); start = end) {
      end = start + number(1, longest);
      pieces.merge(find(start, end));
    }
    EXPECT_EQ(pieces, whole);
  }
}

}  // namespace
