#include "algo/vcall/recal/data_dump.h"

#include <cstdio>
#include <cstdlib>

#include "algo/vcall/recal/text_file.h"
#include "base/text.h"

void dumpData(const std::string& name, const VariantData& data, size_t annotations,
              const std::vector<Contig>& contigs) {
  const char* const path = getenv("debugDump");
  if (!path || !*path) return;
  TextFile file = openTextFile(name, path, "w");
  for (const VariantDatum* each : data) {
    const VariantDatum& datum = *each;
    std::string values;
    for (size_t i = 0; i < annotations; ++i) values += format("%f, ", datum.annotations[i]);
    fprintf(file.get(),
            "%s\t%d\tqual=%f\tprior=%f\tsnp=%d\ttraining=%d\tknown=%d\tbad=%d\tti=%d\ttruth=%d\tcc=%d\t"
            "aggre=%d\toutlier=%d\tlod=%.2f\tx[%d]=[%s]\n",
            datum.contig < 0 ? "." : contigs[size_t(datum.contig)].contig, datum.pos + 1, datum.qual,
            datum.prior, datum.isBiallelicSNP, datum.atTrainingSite, datum.isKnown, datum.atAntiTrainingSite,
            datum.isTransition, datum.isTruth, int(datum.consensusCount), datum.isAggregate, datum.isOutlier,
            datum.lod, int(annotations), values.c_str());
  }
  closeTextFile(name, path, std::move(file));
}
