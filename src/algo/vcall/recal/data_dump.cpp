#include "algo/vcall/recal/data_dump.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "base/text.h"

void dumpData(const std::string& name, const std::vector<VariantDatum>& data,
              const std::vector<Contig>& contigs) {
  const char* const path = getenv("debugDump");
  if (!path || !*path) return;
  FILE* const file = fopen(path, "w");
  if (!file) throw std::runtime_error(name + ": cannot open file " + path + ", " + strerror(errno));
  for (const VariantDatum& datum : data) {
    std::string values;
    for (double value : datum.annotations) values += format("%f, ", value);
    fprintf(file,
            "%s\t%d\tqual=%f\tprior=%f\tsnp=%d\ttraining=%d\tknown=%d\tbad=%d\tti=%d\ttruth=%d\tcc=%d\t"
            "aggre=%d\toutlier=%d\tlod=%.2f\tx[%d]=[%s]\n",
            datum.contig < 0 ? "." : contigs[size_t(datum.contig)].contig, datum.pos + 1, datum.qual,
            datum.prior, datum.isBiallelicSNP, datum.atTrainingSite, datum.isKnown, datum.atAntiTrainingSite,
            datum.isTransition, datum.isTruth, int(datum.consensusCount), datum.isAggregate, datum.isOutlier,
            datum.lod, int(datum.annotations.size()), values.c_str());
  }
  const bool failed = ferror(file);
  if (fclose(file) != 0 || failed)
    throw std::runtime_error(name + ": failed to write to file " + path + ", " + strerror(errno));
}
