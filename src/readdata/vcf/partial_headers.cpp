#include "readdata/vcf/partial_headers.h"

#include <memory>
#include <stdexcept>

#include "readdata/stream/open_stream.h"

namespace {

VCFHeader readPartial(const std::string& algo, const std::string& path) {
  const std::unique_ptr<IOHandle> stream = openStream(path, "r");
  if (!stream) throw std::runtime_error(algo + ": failed to open partial file " + path);
  VCFHeader header;
  try {
    header.parse(*stream);
  } catch (const std::runtime_error& failure) {
    throw std::runtime_error(algo + ": " + failure.what() + " in partial file " + path);
  }
  return header;
}

}  // namespace

VCFHeader checkPartials(const std::string& algo, const std::vector<std::string>& paths,
                        const std::vector<PartialTrait>& traits) {
  VCFHeader first = readPartial(algo, paths.at(0));
  for (const std::string& path : paths) {
    const VCFHeader header = readPartial(algo, path);
    const auto require = [&](bool alike, const char* what) {
      if (!alike)
        throw std::invalid_argument(algo + ": partial files " + paths[0] + " and " + path +
                                    " are not of the same " + what);
    };
    for (const PartialTrait& trait : traits) require(trait.of(header) == trait.of(first), trait.what);
    require(header.samples == first.samples, "samples");
  }
  return first;
}
