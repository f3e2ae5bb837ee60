// read_evaluator.h - the likelihoods of a region's reads under its haplotypes, and where each read lies on the reference
// by the haplotype that explains it best. Both in chunks that other threads may take.
// Coords   zero-based half open.
// Threads  constant: one object may serve several walkers. A call works on, or waits for, its own chunks, which are
//          leaves of the pool; it must hold no lock that a task of the pool takes.
#pragma once

#include <memory>
#include <vector>

#include "algo/vcall/assembly_task.h"
#include "algo/vcall/pairhmm/pair_hmm.h"
#include "base/thread_coop.h"
#include "readdata/bam/read.h"

class ReadEvaluator {
 public:
  // `chunkSize` cells at most go into one call, but for what fills up a row; 0: no chunks. Without a pool (null) the
  // chunks are the caller's own. `hmm` and `pool` must outlive the evaluator.
  ReadEvaluator(const PairHMM& hmm, thread_coop* pool, int chunkSize);

  // reads x haplotypes, log10 and finite, the same values whatever the chunks; NaN in front of a read that fits none or
  // has no bases.
  void calcLikelihoods(const AssemblyTask& task, std::vector<double>& rows) const;

  // The task's reads, in its order, as aligned through their best haplotypes. A read stays as it is when no haplotype is
  // ahead of all others by kInformativeMargin, or when the way through its haplotype does not lead onto the reference of
  // the task. `made` owns what is new; it refers to the reads of the task, which must outlive it.
  //
  // What a clip leaves out of a read keeps the CIGAR that it had where that joins the new one without a gap, and else is
  // soft-clipped.
  void realign(const AssemblyTask& task, const std::vector<double>& rows,
               std::vector<std::unique_ptr<RealignedRead>>& made, std::vector<Read*>& aligned) const;

 private:
  // Rows of one chunk.
  size_t chunkRows(const AssemblyTask& task) const;
  // Of what goes into one call, or to another thread, at a time: less than a chunk, that no thread idles.
  size_t pieceRows(const AssemblyTask& task) const;

  const PairHMM& hmm_;
  thread_coop* pool_;
  int chunk_size_;
};
