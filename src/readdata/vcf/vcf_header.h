// vcf_header.h - the meta lines, contigs and sample names of a VCF file.
// Owns     everything in it.
// Threads  built by one thread, then read by all.
// Errors   parse() drops what it cannot use, and an unreadable stream gives an empty header; see error_code() there.
// Source   the VCF 4.2 format document; any VCF 4.x is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "readdata/stream/io_handle.h"

struct VCFHeaderDef {
  std::string id;
  std::vector<std::string> attrs;  // "key=value" texts as they stand, without the ID
};

class VCFHeader {
 public:
  struct Contig {
    std::string name;
    int64_t length = -1;  // bases, -1 when not told
    std::string assembly;
  };
  using Pair = std::pair<std::string, std::string>;

  std::vector<std::string> lines;                         // meta lines without structure and without "##"
  std::vector<std::string> samples;                       // in column order
  std::map<std::string, std::vector<VCFHeaderDef>> defs;  // by key: INFO, FORMAT, FILTER, contig, ...

  // Reads from where `stream` stands, and leaves it at the first record. A line of 4095 bytes or more is dropped.
  // Throws std::runtime_error, without the file's name, for a header that would take more than 256 MiB of memory.
  void parse(IOHandle& stream);
  // Writes the header as VCF 4.2; sorts the INFO and FORMAT entries by id. Failures show in the stream's error_code().
  void print(IOHandle& stream);

  void addLine(const std::string& key, const std::string& value);  // "key=value", cut to 255 bytes
  void addRawLine(const std::string& text);
  void removeLines(const std::string& key);
  // Lines that tell the bands of reference blocks: whether there are any, as in each GVCF; and without them.
  bool hasBlockLines() const;
  void removeBlockLines();

  // Adds an entry, or replaces the attributes of the one with that id, which keeps its place. Looks through all
  // entries of the key: a long list of contigs is better appended to `defs` itself.
  void addDef(const std::string& key, const std::string& id, const std::vector<Pair>& pairs);
  // The description comes with its double quotes.
  void addInfoDef(const std::string& id, const std::string& number, const std::string& type,
                  const std::string& description);
  void addFormatDef(const std::string& id, const std::string& number, const std::string& type,
                    const std::string& description);
  // A standard line by its id; an unknown one adds nothing. No INFO line is standard yet.
  void addInfoDef(const std::string& id);
  void addFormatDef(const std::string& id);
  void removeDef(const std::string& key, const char* id);  // null: all entries of the key
  void removeInfoDef(const std::string& id) { removeDef("INFO", id.c_str()); }
  void removeFormatDef(const std::string& id) { removeDef("FORMAT", id.c_str()); }
  // The next entry of `key` at or after *cursor (with that id, unless null), and the cursor moves behind it; null when
  // there is none.
  const VCFHeaderDef* findDef(const std::string& key, const char* id, size_t* cursor) const;
  // False without such an entry. The pointers lead into the entry, and are null for an attribute that is not there.
  bool getInfoDef(const std::string& id, const char** number, const char** type,
                  const char** description) const;
  bool getFormatDef(const std::string& id, const char** number, const char** type,
                    const char** description) const;

  // The line that tells how a file was made: `command_line` is the driver's with the algorithm's arguments behind it.
  // Version and the present time (UTC) are added; with SOURCE_DATE_EPOCH in the environment, that time.
  void addCommandLine(const std::string& algo, const std::string& command_line);

  // By assembly ("" when not told), each in file order.
  std::map<std::string, std::vector<Contig>> contigs() const;

  // Adds what this header lacks of `other`. sampleMap[i] becomes the column here of other's sample i, or -1 for a name
  // that is here already, unless `uniquify` appends it as name:1, name:2, ... False, at once, for a contig that this
  // header lacks.
  bool merge(const VCFHeader& other, std::vector<int>& sampleMap, bool uniquify);
};

// Whether the file begins as a VCF does.
bool isVCF(const std::string& path);
