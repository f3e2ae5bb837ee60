#include "options.h"

#include <charconv>
#include <cmath>
#include <functional>
#include <set>
#include <stdexcept>

#include "base/text.h"

namespace {

[[noreturn]] void refuse(const std::string& value, const char* wanted) {
  throw std::invalid_argument("'" + value + "' is not " + wanted);
}

int64_t parseInt(const std::string& text, int64_t low, int64_t high) {
  int64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high)
    refuse(text, format("a whole number from %lld to %lld", static_cast<long long>(low),
                        static_cast<long long>(high))
                     .c_str());
  return value;
}

// from_chars, unlike strtod, does not look at the locale.
double parseFraction(const std::string& text, double low, double high) {
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !(value >= low && value <= high))
    refuse(text, format("a fraction from %g to %g", low, high).c_str());
  return value;
}

uint32_t parseMillionths(const std::string& text, double low, double high) {
  return static_cast<uint32_t>(std::lround(parseFraction(text, low, high) * 1e6));
}

std::vector<uint32_t> parseFractions(const std::string& text) {
  std::set<uint32_t> fractions;
  for (const std::string& item : split(text, ',')) fractions.insert(parseMillionths(item, 0.0001, 1));
  if (fractions.size() > 10) refuse(text, "a list of 10 fractions or fewer");
  return {fractions.begin(), fractions.end()};
}

// Names end up in file names, header lines and read group names.
void checkName(const std::string& name) {
  if (name.empty() || name.size() > 40) refuse(name, "a name of 1 to 40 characters");
  for (size_t i = 0; i < name.size(); ++i) {
    char c = name[i];
    bool alphanumeric = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (!alphanumeric && (i == 0 || (c != '_' && c != '.' && c != '-')))
      refuse(name, "a name of letters, digits, '_', '.' and '-'");
  }
}

void checkDistinct(const std::vector<std::string>& names) {
  std::set<std::string> seen;
  for (const std::string& name : names) {
    checkName(name);
    if (!seen.insert(name).second) throw std::invalid_argument("name '" + name + "' is given twice");
  }
}

constexpr int64_t kMinContig = 1000;
constexpr int64_t kMaxContig = 500'000'000;

std::vector<ContigPlan> parseContigs(const std::string& text) {
  std::vector<ContigPlan> contigs;
  std::vector<std::string> names;
  for (const std::string& item : split(text, ',')) {
    size_t colon = item.rfind(':');
    if (colon == std::string::npos) refuse(item, "a contig as NAME:LENGTH");
    contigs.push_back({item.substr(0, colon),
                       static_cast<uint32_t>(parseInt(item.substr(colon + 1), kMinContig, kMaxContig))});
    names.push_back(contigs.back().name);
  }
  checkDistinct(names);
  return contigs;
}

std::vector<std::string> parseSamples(const std::string& text) {
  std::vector<std::string> names;
  if (text.find_first_not_of("0123456789") == std::string::npos && !text.empty()) {
    int64_t count = parseInt(text, 1, 100);
    for (int64_t i = 1; i <= count; ++i) names.push_back("sample" + std::to_string(i));
  } else {
    names = split(text, ',');
  }
  checkDistinct(names);
  return names;
}

ErrorProfile parseProfile(const std::string& text) {
  if (text == "cycles") return ErrorProfile::kCycles;
  if (text == "binned") return ErrorProfile::kBinned;
  if (text == "perfect") return ErrorProfile::kPerfect;
  refuse(text, "one of cycles, binned, perfect");
}

// What is put together from several options once all are known.
struct Parsed {
  SimulateOptions options;
  int64_t length = 200'000;
  int64_t contig_count = 1;
  std::string of_tumor;  // an option given that only --tumor gives a meaning
};

struct Option {
  const char* name;
  const char* value;  // what stands for the value in the help; null for a switch
  const char* help;
  std::function<void(Parsed&, const std::string&)> set;
  bool of_tumor = false;  // means nothing without --tumor
};

template <class Field>
std::function<void(Parsed&, const std::string&)> number(Field SimulateOptions::*field, int64_t low,
                                                        int64_t high) {
  return [=](Parsed& parsed, const std::string& text) {
    parsed.options.*field = static_cast<Field>(parseInt(text, low, high));
  };
}

std::function<void(Parsed&, const std::string&)> fraction(Chance SimulateOptions::*field, double high = 1) {
  return [=](Parsed& parsed, const std::string& text) {
    parsed.options.*field = chanceOf(parseFraction(text, 0, high));
  };
}

const std::vector<Option>& optionTable() {
  using O = SimulateOptions;
  static const std::vector<Option> table = {
      {"out-dir", "DIR", "folder of the output files, made if missing; must be given",
       [](Parsed& p, const std::string& t) { p.options.out_dir = t; }},
      {"prefix", "TEXT", "put before every file name (none)",
       [](Parsed& p, const std::string& t) { p.options.prefix = t; }},
      {"seed", "N", "same seed and options, same files (1)", number(&O::seed, 0, INT64_MAX)},
      {"contigs", "NAME:LENGTH,...", "contigs; a third one stays without reads",
       [](Parsed& p, const std::string& t) { p.options.contigs = parseContigs(t); }},
      {"length", "N", "without --contigs: bases of all contigs together (200000)",
       [](Parsed& p, const std::string& t) { p.length = parseInt(t, kMinContig, kMaxContig); }},
      {"contig-count", "N", "without --contigs: that many equal contigs chr1, chr2, ... (1)",
       [](Parsed& p, const std::string& t) { p.contig_count = parseInt(t, 1, 1000); }},
      {"depth", "N", "mean coverage per sample, duplicates included (30)", number(&O::depth, 0, 10000)},
      {"pairs", "N", "read pairs per sample, instead of --depth", number(&O::pairs, 1, 1'000'000'000)},
      {"samples", "N|NAME,...", "samples; every third is the child of the two before it (sample1)",
       [](Parsed& p, const std::string& t) { p.options.samples = parseSamples(t); }},
      {"ploidy", "N", "haplotypes per sample, 1 to 8 (2)", number(&O::ploidy, 1, 8)},
      {"read-length", "N", "bases per read (150)", number(&O::read_length, 30, 500)},
      {"insert", "MEAN/SD", "fragment length in bases (400/80)",
       [](Parsed& p, const std::string& t) {
         size_t slash = t.find('/');
         if (slash == std::string::npos) refuse(t, "MEAN/SD");
         p.options.insert_mean = static_cast<int32_t>(parseInt(t.substr(0, slash), 40, 2000));
         p.options.insert_sd = static_cast<int32_t>(parseInt(t.substr(slash + 1), 0, 500));
       }},
      {"read-groups", "N", "read groups per sample, a lane each (4)", number(&O::read_groups, 1, 64)},
      {"libraries", "N", "libraries per sample, at most one per read group (2)",
       number(&O::libraries, 1, 64)},
      {"error", "cycles|binned|perfect",
       "qualities that fall over the cycles, the same in four bins, all 40 "
       "and no errors (cycles)",
       [](Parsed& p, const std::string& t) { p.options.error = parseProfile(t); }},
      {"duplicate-rate", "F", "chance of a fragment having a copy, and a copy another one (0.08)",
       fraction(&O::duplicate, 0.9)},
      {"optical", "F", "fraction of copies that are optical: same lane and tile, few pixels away (0.25)",
       fraction(&O::optical)},
      {"short-insert-rate", "F", "fragments shorter than a read, read through into the adapter (0.01)",
       fraction(&O::short_insert)},
      {"chimera-rate", "F", "fragments of two distant pieces; a third of them split inside a read (0.01)",
       fraction(&O::chimera)},
      {"half-mapped-rate", "F", "pairs with one unmapped read (0.01)", fraction(&O::half_mapped)},
      {"unmapped-rate", "F", "pairs unmapped altogether (0.01)", fraction(&O::unmapped)},
      {"qc-fail-rate", "F", "pairs with the QC-fail flag (0.005)", fraction(&O::qc_fail)},
      {"soft-clip-rate", "F", "reads with a clipped junk end (0.03)", fraction(&O::soft_clip)},
      {"snp-rate", "F", "SNP sites per base (0.001)", fraction(&O::snp, 0.1)},
      {"indel-rate", "F", "indel sites per base (0.00015)", fraction(&O::indel, 0.02)},
      {"cluster-rate", "F",
       "chance of a site having another 2 to 12 bases behind it, and that one another (0)",
       fraction(&O::cluster, 0.9)},
      {"multi-allelic-rate", "F", "further sites with a second alternative (0)", fraction(&O::multi_allelic)},
      {"flag-duplicates", nullptr, "set the duplicate flag on the copies (it is left to be found)",
       [](Parsed& p, const std::string&) { p.options.flag_duplicates = true; }},
      {"tumor", "NAME", "add a tumor of that name to the one sample, its normal; with files of truth",
       [](Parsed& p, const std::string& t) {
         checkName(t);
         p.options.tumor = t;
       }},
      {"normal-depth", "N", "mean coverage of the normal, in place of --depth (35)",
       number(&O::normal_depth, 0, 10000), true},
      {"tumor-depth", "N", "mean coverage of the tumor, in place of --depth (90)",
       number(&O::tumor_depth, 0, 10000), true},
      {"somatic-snv-rate", "F", "somatic SNVs per base (0.0004)", fraction(&O::somatic_snv, 0.01), true},
      {"somatic-indel-rate", "F", "somatic indels per base (0.0002)", fraction(&O::somatic_indel, 0.01),
       true},
      {"fractions", "F,...", "allele fractions of somatic sites (0.5,0.3,0.2,0.1,0.05)",
       [](Parsed& p, const std::string& t) { p.options.fractions = parseFractions(t); }, true},
      {"tumor-contamination", "F", "fragments of the tumor that are another individual's (0)",
       [](Parsed& p, const std::string& t) { p.options.tumor_contamination = parseMillionths(t, 0, 1); },
       true},
      {"normal-contamination", "F", "fragments of the normal that are the tumor's (0)",
       [](Parsed& p, const std::string& t) { p.options.normal_contamination = parseMillionths(t, 0, 1); },
       true},
      {"strand-artefact-rate", "F", "bases where reads of one direction show what is not there (0)",
       fraction(&O::strand_artefact, 0.01), true},
      {"end-artefact-rate", "F", "bases where read ends show what is not there (0)",
       fraction(&O::end_artefact, 0.01), true},
      {"oxidation-rate", "F", "bases G or C that oxidation makes T or A in some molecules (0)",
       fraction(&O::oxidation, 0.01), true},
      {"compression", "N", "level of the BAM; 1 depends on the processor (2)", number(&O::compression, 0, 9)},
      {"help", nullptr, "this text", [](Parsed& p, const std::string&) { p.options.help = true; }},
  };
  return table;
}

const Option& findOption(const std::string& name) {
  for (const Option& option : optionTable())
    if (name == option.name) return option;
  throw std::invalid_argument("unknown option --" + name);
}

void complete(Parsed& parsed) {
  SimulateOptions& options = parsed.options;
  if (options.contigs.empty()) {
    int64_t each = parsed.length / parsed.contig_count;
    if (each < kMinContig)
      throw std::invalid_argument(
          format("--contig-count: contigs below %d bases", static_cast<int>(kMinContig)));
    for (int64_t i = 1; i <= parsed.contig_count; ++i)
      options.contigs.push_back({"chr" + std::to_string(i), static_cast<uint32_t>(each)});
  }
  int64_t total = 0;
  for (const ContigPlan& contig : options.contigs) total += contig.length;
  if (total > UINT32_MAX) throw std::invalid_argument("a genome above 2^32 - 1 bases");
  if (options.out_dir.empty()) throw std::invalid_argument("--out-dir must be given");
  if (options.prefix.find('/') != std::string::npos)
    throw std::invalid_argument("--prefix holds a '/'; folders go to --out-dir");
  if (options.libraries > options.read_groups)
    throw std::invalid_argument("--libraries: more libraries than read groups");
  if (options.tumor.empty() && !parsed.of_tumor.empty())
    throw std::invalid_argument("--" + parsed.of_tumor + " needs --tumor");
  if (options.tumor.empty()) return;
  if (options.samples.size() > 1) throw std::invalid_argument("--tumor: more than one sample beside it");
  options.samples.push_back(options.tumor);
  checkDistinct(options.samples);
  for (uint32_t fraction : options.fractions)
    if (uint64_t(fraction) * static_cast<uint64_t>(options.ploidy) > 1'000'000)
      throw std::invalid_argument(format("--fractions: above one in %d haplotypes", options.ploidy));
}

}  // namespace

SimulateOptions parseOptions(const std::vector<std::string>& args) {
  Parsed parsed;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg.compare(0, 2, "--") != 0) throw std::invalid_argument("unexpected argument '" + arg + "'");
    size_t equals = arg.find('=');
    std::string name = arg.substr(2, equals == std::string::npos ? equals : equals - 2);
    const Option& option = findOption(name);
    std::string value;
    if (equals != std::string::npos) {
      if (option.value == nullptr) throw std::invalid_argument("--" + name + " takes no value");
      value = arg.substr(equals + 1);
    } else if (option.value != nullptr) {
      if (i + 1 == args.size()) throw std::invalid_argument("--" + name + " needs a value");
      value = args[++i];
    }
    try {
      option.set(parsed, value);
      if (option.of_tumor) parsed.of_tumor = name;
    } catch (const std::invalid_argument& error) {
      throw std::invalid_argument("--" + name + ": " + error.what());
    }
  }
  if (!parsed.options.help) complete(parsed);
  return parsed.options;
}

std::string optionHelp() {
  std::string text = "usage: simulate --out-dir DIR [options]\n\n";
  for (const Option& option : optionTable()) {
    std::string head =
        std::string("  --") + option.name + (option.value != nullptr ? std::string(" ") + option.value : "");
    if (head.size() < 30)
      head.resize(32, ' ');
    else
      head += "\n" + std::string(32, ' ');
    text += head + option.help + "\n";
  }
  return text;
}
