// read_evaluator.h - the likelihoods of a region's reads under its haplotypes, and where each read lies on the reference
// by the haplotype that explains it best. Both in chunks that other threads may take.
// Threads  one object per walker; see thread_coop for the waits.
#pragma once

#include <memory>
#include <vector>

#include "algo/vcall/assembly_task.h"
#include "algo/vcall/pairhmm/pair_hmm.h"
#include "base/thread_coop.h"
#include "readdata/bam/read.h"

class ReadEvaluator {
 public:
  // `chunkSize` cells at most go into one call; 0: no chunks.
  ReadEvaluator(const PairHMM& hmm, thread_coop* pool, int chunkSize);

  // reads x haplotypes, log10; NaN in front of a read that fits none.
  void calcLikelihoods(const AssemblyTask& task, std::vector<double>& rows) const;

  // The task's reads as aligned through their best haplotypes; a read without a single best one stays as it is. `made`
  // owns what is new, and `clips` has the reads of the task with the new ones in place.
  void realign(const AssemblyTask& task, const std::vector<double>& rows,
               std::vector<std::unique_ptr<RealignedRead>>& made, std::vector<Read*>& aligned) const;

 private:
  const PairHMM& hmm_;
  thread_coop* pool_;
  int chunk_size_;
};
