#include "readdata/stream/huffman_code.h"

#include <algorithm>
#include <array>
#include <vector>

namespace {

constexpr int kLongest = 15;

struct Node {
  uint32_t count;
  size_t symbol;      // of a leaf
  size_t parent = 0;  // always a later node
  int depth = 0;
};

// Leaves in rising order, behind them the inner nodes in the order they are made, which rises as well: the two
// smallest without a parent are always at the front of either half. The greatest depth.
int growTree(std::vector<Node>& nodes) {
  const size_t leaves = nodes.size();
  size_t leaf = 0, inner = leaves;
  auto takeSmallest = [&] {
    const bool take_leaf =
        leaf < leaves && (inner >= nodes.size() || nodes[leaf].count <= nodes[inner].count);
    return take_leaf ? leaf++ : inner++;
  };
  while (nodes.size() < 2 * leaves - 1) {
    const size_t a = takeSmallest(), b = takeSmallest();
    nodes[a].parent = nodes[b].parent = nodes.size();
    nodes.push_back({nodes[a].count + nodes[b].count, 0});
  }
  int deepest = 0;
  for (size_t i = nodes.size() - 1; i-- > 0;)
    deepest = std::max(deepest, nodes[i].depth = nodes[nodes[i].parent].depth + 1);
  return deepest;
}

}  // namespace

void huffmanLengths(const uint32_t* counts, size_t n, int limit, uint8_t* lengths) {
  std::vector<uint32_t> scaled(counts, counts + n);
  std::vector<Node> nodes;
  for (;;) {
    nodes.clear();
    for (size_t symbol = 0; symbol < n; ++symbol)
      if (scaled[symbol] > 0) nodes.push_back({scaled[symbol], symbol});
    std::stable_sort(nodes.begin(), nodes.end(),
                     [](const Node& a, const Node& b) { return a.count < b.count; });
    const size_t leaves = nodes.size();
    if (growTree(nodes) <= limit) {
      std::fill_n(lengths, n, uint8_t(0));
      for (size_t i = 0; i < leaves; ++i) lengths[nodes[i].symbol] = uint8_t(nodes[i].depth);
      return;
    }
    for (uint32_t& count : scaled) count = (count + 1) / 2;
  }
}

void huffmanCodes(const uint8_t* lengths, size_t n, uint16_t* codes) {
  std::array<uint32_t, kLongest + 1> of_length{};
  for (size_t i = 0; i < n; ++i) ++of_length[lengths[i]];
  std::array<uint32_t, kLongest + 1> next{};
  of_length[0] = 0;
  for (int length = 1; length <= kLongest; ++length)
    next[length] = (next[length - 1] + of_length[length - 1]) << 1;
  for (size_t i = 0; i < n; ++i) {
    if (lengths[i] == 0) continue;
    uint32_t code = next[lengths[i]]++, turned = 0;
    for (int bit = 0; bit < lengths[i]; ++bit, code >>= 1) turned = turned << 1 | (code & 1);
    codes[i] = uint16_t(turned);
  }
}
