#include "algo/assembler/kmer_factory.h"

#include <cstring>
#include <stdexcept>

KMerFactory::KMerFactory(int kmerSize)
    : kmer_size_(static_cast<size_t>(kmerSize)), buckets_(kFirstBuckets, nullptr) {}

KMer& KMerFactory::find(const char* bases, uint32_t hash, int32_t mark) {
  for (KMer* kmer = buckets_[hash & (buckets_.size() - 1)]; kmer != nullptr; kmer = kmer->next)
    if (kmer->hash == hash && memcmp(kmer->bases, bases, kmer_size_) == 0) return *kmer;

  if (size_ == kMaxKmers) throw std::runtime_error("too many k-mers in one region");
  if (size_ == buckets_.size()) grow();
  if (size_ % kBlock == 0) blocks_.push_back(std::make_unique_for_overwrite<KMer[]>(kBlock + 1));
  KMer*& bucket = buckets_[hash & (buckets_.size() - 1)];
  KMer& kmer = blocks_.back()[size_++ % kBlock];
  kmer = {bucket, bases, hash, mark};
  (&kmer)[1].bases = nullptr;  // as long as it is not made; see follow()
  bucket = &kmer;
  return kmer;
}

void KMerFactory::grow() {
  buckets_.assign(buckets_.size() * 2, nullptr);
  forEach([this](KMer& kmer) {
    KMer*& bucket = buckets_[kmer.hash & (buckets_.size() - 1)];
    kmer.next = bucket;
    bucket = &kmer;
  });
}
