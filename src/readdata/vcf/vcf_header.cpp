#include "readdata/vcf/vcf_header.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <unordered_set>

#include "base/text.h"
#include "base/version.h"

namespace {

// The present time, or the one that SOURCE_DATE_EPOCH asks for, in seconds of the epoch.
time_t recordedTime() {
  const char* const text = getenv("SOURCE_DATE_EPOCH");
  if (!text) return time(nullptr);
  constexpr int64_t kYear10000 = 253402300800;
  int64_t seconds = -1;
  return parseNumber(text, seconds) && seconds >= 0 && seconds < kYear10000 ? static_cast<time_t>(seconds)
                                                                            : time(nullptr);
}

struct StandardDef {
  const char *id, *number, *type, *description;
};

constexpr StandardDef kStandardFormats[] = {
    {"AD", ".", "Integer", "\"Allelic depths for the ref and alt alleles in the order listed\""},
    {"DP", "1", "Integer", "\"Read depth\""},
    {"GQ", "1", "Integer", "\"Genotype quality\""},
    {"GT", "1", "String", "\"Genotype\""},
    {"PL", "G", "Integer", "\"The phred-scaled genotype likelihoods rounded to the closest integer\""},
};

using NameSet = std::unordered_set<std::string_view>;

constexpr size_t kFewSearches = 4;  // in a list, that cost less than a set of its names

// Room for `more` elements at least, so that views of the strings in `list` stay valid while they are appended.
template <class T>
void reserveMore(std::vector<T>& list, size_t more) {
  const size_t needed = list.size() + more;
  if (needed > list.capacity()) list.reserve(std::max(needed, 2 * list.capacity()));
}

// What stands behind `prefix` in the first attribute that begins with it, null without one.
const char* attribute(const VCFHeaderDef& def, std::string_view prefix) {
  for (const std::string& attr : def.attrs)
    if (attr.starts_with(prefix)) return attr.c_str() + prefix.size();
  return nullptr;
}

bool getDef(const VCFHeader& header, const char* key, const std::string& id, const char** number,
            const char** type, const char** description) {
  size_t cursor = 0;
  const VCFHeaderDef* def = header.findDef(key, id.c_str(), &cursor);
  if (!def) return false;
  *number = attribute(*def, "Number=");
  *type = attribute(*def, "Type=");
  *description = attribute(*def, "Description=");
  return true;
}

bool isBlockLine(const std::string& line) {
  return line.starts_with("GVCFBlock");
}

}  // namespace

void VCFHeader::addLine(const std::string& key, const std::string& value) {
  char text[256];
  snprintf(text, sizeof text, "%s=%s", key.c_str(), value.c_str());
  lines.emplace_back(text);
}

void VCFHeader::addRawLine(const std::string& text) {
  lines.push_back(text);
}

void VCFHeader::removeLines(const std::string& key) {
  const std::string prefix = key + "=";
  std::erase_if(lines, [&prefix](const std::string& line) { return line.starts_with(prefix); });
}

bool VCFHeader::hasBlockLines() const {
  return std::any_of(lines.begin(), lines.end(), isBlockLine);
}

void VCFHeader::removeBlockLines() {
  std::erase_if(lines, isBlockLine);
}

void VCFHeader::addDef(const std::string& key, const std::string& id, const std::vector<Pair>& pairs) {
  std::vector<VCFHeaderDef>& entries = defs[key];
  auto entry = std::find_if(entries.begin(), entries.end(), [&id](const auto& def) { return def.id == id; });
  if (entry == entries.end()) entry = entries.insert(entry, {id, {}});
  entry->attrs.clear();
  for (const auto& [name, value] : pairs) entry->attrs.push_back(name + "=" + value);
}

void VCFHeader::addInfoDef(const std::string& id, const std::string& number, const std::string& type,
                           const std::string& description) {
  addDef("INFO", id, {{"Number", number}, {"Type", type}, {"Description", description}});
}

void VCFHeader::addFormatDef(const std::string& id, const std::string& number, const std::string& type,
                             const std::string& description) {
  addDef("FORMAT", id, {{"Number", number}, {"Type", type}, {"Description", description}});
}

void VCFHeader::addInfoDef(const std::string&) {}

void VCFHeader::addFormatDef(const std::string& id) {
  for (const StandardDef& def : kStandardFormats)
    if (id == def.id) addFormatDef(id, def.number, def.type, def.description);
}

void VCFHeader::removeDef(const std::string& key, const char* id) {
  const auto found = defs.find(key);
  if (found == defs.end()) return;
  if (!id)
    defs.erase(found);
  else
    std::erase_if(found->second, [id](const VCFHeaderDef& def) { return def.id == id; });
}

const VCFHeaderDef* VCFHeader::findDef(const std::string& key, const char* id, size_t* cursor) const {
  const auto found = defs.find(key);
  if (found == defs.end()) return nullptr;
  const std::string_view wanted = id ? id : "";
  while (*cursor < found->second.size()) {
    const VCFHeaderDef& def = found->second[(*cursor)++];
    if (!id || def.id == wanted) return &def;
  }
  return nullptr;
}

bool VCFHeader::getInfoDef(const std::string& id, const char** number, const char** type,
                           const char** description) const {
  return getDef(*this, "INFO", id, number, type, description);
}

bool VCFHeader::getFormatDef(const std::string& id, const char** number, const char** type,
                             const char** description) const {
  return getDef(*this, "FORMAT", id, number, type, description);
}

void VCFHeader::addCommandLine(const std::string& algo, const std::string& command_line) {
  const time_t now = recordedTime();
  tm utc;
  gmtime_r(&now, &utc);
  char date[32];
  strftime(date, sizeof date, "\"%FT%TZ\"", &utc);
  std::string text = "\"";
  for (const char c : command_line) {  // an argument may hold what would break the line
    if (c == '"' || c == '\\') text += '\\';
    text += c == '\n' || c == '\r' ? ' ' : c;
  }
  text += '"';
  addDef("TorvesinCommandLine." + algo, algo,
         {{"Version", std::string("\"") + version_text() + '"'}, {"Date", date}, {"CommandLine", text}});
}

std::map<std::string, std::vector<VCFHeader::Contig>> VCFHeader::contigs() const {
  std::map<std::string, std::vector<Contig>> result;
  const auto found = defs.find("contig");
  if (found == defs.end()) return result;
  for (const VCFHeaderDef& def : found->second) {
    Contig contig;
    contig.name = def.id;
    if (const char* assembly = attribute(def, "assembly=")) contig.assembly = assembly;
    if (const char* text = attribute(def, "length=")) {
      int64_t length;
      const auto [stop, error] = std::from_chars(text, strchr(text, '\0'), length);
      if (error == std::errc() && length >= 0) contig.length = length;
    }
    result[contig.assembly].push_back(std::move(contig));
  }
  return result;
}

bool VCFHeader::merge(const VCFHeader& other, std::vector<int>& sampleMap, bool uniquify) {
  sampleMap.assign(other.samples.size(), -1);
  reserveMore(samples, other.samples.size());
  NameSet names;  // of `samples`, made when more than a few are looked for
  size_t searches = 0;
  const auto has = [&](const std::string& name) {
    if (++searches <= kFewSearches) return std::find(samples.begin(), samples.end(), name) != samples.end();
    if (names.empty()) names.insert(samples.begin(), samples.end());
    return names.contains(name);
  };
  for (size_t i = 0; i < sampleMap.size(); ++i) {
    std::string name = other.samples[i];
    if (has(name)) {
      if (!uniquify) continue;
      int k = 1;
      do {
        name = other.samples[i] + ":" + std::to_string(k++);
      } while (has(name));
    }
    sampleMap[i] = static_cast<int>(samples.size());
    samples.push_back(std::move(name));
    if (!names.empty()) names.insert(samples.back());
  }

  reserveMore(lines, other.lines.size());
  NameSet known(lines.begin(), lines.end());
  for (const std::string& line : other.lines) {
    if (known.contains(line)) continue;
    lines.push_back(line);
    known.insert(lines.back());
  }

  for (const auto& [key, entries] : other.defs) {
    std::vector<VCFHeaderDef>& own = defs[key];
    reserveMore(own, entries.size());
    NameSet ids;  // of `own`, made when the first entry is not where it is in `other`
    for (size_t i = 0; i < entries.size(); ++i) {
      const VCFHeaderDef& def = entries[i];
      if (i < own.size() && own[i].id == def.id) continue;
      if (ids.empty())
        for (const VCFHeaderDef& known_def : own) ids.insert(known_def.id);
      if (ids.contains(def.id)) continue;
      if (key == "contig") return false;
      own.push_back(def);
      ids.insert(own.back().id);
    }
  }
  return true;
}
