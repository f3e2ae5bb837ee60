#include "algo/assembler/smith_waterman_kernel.h"

namespace SMITHWATERMAN {

void fillScalar(const FillJob& job) {
  const size_t words = job.stride / 4;
  for (size_t row = 0; row < job.reference_length; ++row) {
    const int32_t* scores =
        job.profile + job.profile_row[static_cast<uint8_t>(job.reference[row])] * job.stride;
    const size_t first = firstCell(job, row), end = endWord(job, row);
    int32_t diagonal = first == 0 ? job.first_column[row] : job.h[first - 1];
    int32_t left = first == 0 ? job.first_column[row + 1] : kMinusInfinity;
    int32_t insertion = kMinusInfinity;
    for (size_t word = first / 4; word < end; ++word) {
      uint32_t directions = 0, ties = 0;
      for (uint32_t k = 0; k < 4; ++k) {
        const size_t j = word * 4 + k;
        const int32_t pair = diagonal + scores[j];
        diagonal = job.h[j];

        int32_t deletion = job.h[j] + job.open;
        if (job.e[j] + job.extend > deletion) {
          deletion = job.e[j] + job.extend;
          directions |= kDeletionGoesOn << k;
        }
        job.e[j] = deletion;

        const int32_t longer = insertion + job.extend;
        insertion = left + job.open;
        if (longer > insertion) {
          insertion = longer;
          directions |= kInsertionGoesOn << k;
        }

        int32_t best = pair;
        if (deletion == best) ties |= kDeletionTies << k;
        if (deletion > best) {
          best = deletion;
          directions |= kDeletionBest << k;
        }
        if (insertion == best) ties |= kInsertionTies << k;
        if (insertion > best) {
          best = insertion;
          directions |= kInsertionBest << k;
        }
        job.h[j] = left = best;
      }
      job.directions[row * words + word] = static_cast<uint16_t>(directions);
      if (job.ties != nullptr) job.ties[row * words + word] = static_cast<uint8_t>(ties);
    }
    job.last_column[row + 1] = job.h[job.read_length - 1];
  }
}

}  // namespace SMITHWATERMAN
