#include "algo/assembler/smith_waterman_matrix.h"

#include <algorithm>
#include <array>
#include <new>

namespace SMITHWATERMAN {
namespace {

constexpr char kProfileBases[] = "ACGTN";
constexpr size_t kProfileRows = 5;
constexpr std::array<uint8_t, 256> kProfileRow = [] {
  std::array<uint8_t, 256> rows = {};  // any other base has the first row
  for (uint8_t row = 0; row < kProfileRows; ++row) rows[static_cast<uint8_t>(kProfileBases[row])] = row;
  return rows;
}();

bool cpuHasSse41() {
  static const bool has = __builtin_cpu_supports("sse4.1");
  return has;
}

constexpr size_t roundUp(size_t number, size_t step) {
  return (number + step - 1) / step * step;
}

}  // namespace

void Matrix::fill(const char* reference, size_t reference_length, const char* read, size_t read_length,
                  const Scores& scores, bool gap_borders, bool keep_ties, Band band) {
  const size_t stride = roundUp(read_length, 4);
  const size_t column_cells = roundUp(reference_length + 1, 4);
  const size_t words = reference_length * (stride / 4);
  const size_t cells = (2 + kProfileRows) * stride + 2 * column_cells;
  const size_t bytes = cells * sizeof(int32_t) + words * sizeof(uint16_t) + (keep_ties ? words : 0);
  if (bytes > capacity_) {
    memory_.reset();
    capacity_ = 0;
    const size_t capacity = roundUp(bytes, 64);
    memory_.reset(static_cast<char*>(std::aligned_alloc(64, capacity)));
    if (!memory_) throw std::bad_alloc();
    capacity_ = capacity;
  }
  int32_t* const h = reinterpret_cast<int32_t*>(memory_.get());
  int32_t* const e = h + stride;
  int32_t* const profile = e + stride;
  int32_t* const first_column = profile + kProfileRows * stride;
  int32_t* const last_column = first_column + column_cells;
  uint16_t* const directions = reinterpret_cast<uint16_t*>(last_column + column_cells);
  uint8_t* const ties = keep_ties ? reinterpret_cast<uint8_t*>(directions + words) : nullptr;
  job_ = {.reference = reference,
          .reference_length = reference_length,
          .read_length = read_length,
          .stride = stride,
          .profile_row = kProfileRow.data(),
          .profile = profile,
          .open = scores[2],
          .extend = scores[3],
          .band = band,
          .first_column = first_column,
          .last_column = last_column,
          .h = h,
          .e = e,
          .directions = directions,
          .ties = ties};
  gap_borders_ = gap_borders;

  for (size_t row = 0; row < kProfileRows; ++row) {
    int32_t* out = profile + row * stride;
    const char base = kProfileBases[row];
    for (size_t j = 0; j < read_length; ++j) out[j] = read[j] == base ? scores[0] : scores[1];
    std::fill(out + read_length, out + stride, scores[1]);
  }
  for (size_t j = 0; j < stride; ++j) h[j] = border(static_cast<int32_t>(j + 1));
  std::fill(e, e + stride, kMinusInfinity);
  for (size_t row = 0; row <= reference_length; ++row) first_column[row] = border(static_cast<int32_t>(row));
  last_column[0] = h[read_length - 1];

  if (cpuHasSse41() && job_.open < job_.extend)
    fillSse41(job_);
  else
    fillScalar(job_);
}

}  // namespace SMITHWATERMAN
