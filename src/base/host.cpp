#include "base/host.h"

#include <cpuid.h>
#include <cstring>
#include <sys/utsname.h>

#include "base/text.h"

namespace {

struct Leaf {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;  // all 0 when the processor lacks the leaf
};

Leaf leaf(unsigned number) {
  Leaf value;
  __get_cpuid_count(number, 0, &value.eax, &value.ebx, &value.ecx, &value.edx);
  return value;
}

std::string vendorText(const Leaf& first) {
  const unsigned words[] = {first.ebx, first.edx, first.ecx};
  char text[sizeof words + 1] = {};
  memcpy(text, words, sizeof words);
  return text;
}

std::string brandText() {
  char text[3 * sizeof(Leaf) + 1] = {};
  for (unsigned i = 0; i < 3; ++i) {
    Leaf part = leaf(0x80000002 + i);
    memcpy(text + i * sizeof part, &part, sizeof part);
  }
  return text;
}

}  // namespace

std::string host_report() {
  utsname system;
  if (uname(&system) != 0) return "";
  Leaf first = leaf(0), features = leaf(1), extended = leaf(7), amd = leaf(0x80000001);
  return format("os version: %s %s\n", system.sysname, system.release) +
         format("cpu vendor: %s signature: %08x\n", vendorText(first).c_str(), features.eax) +
         format("  features: %08x %08x\n", features.edx, features.ecx) +
         format("  extended: %08x %08x\n", extended.ebx, extended.ecx) +
         format("  amd bits: %08x %08x\n", amd.edx, amd.ecx) +
         format("     brand: %s\n", brandText().c_str());
}

bool cpu_has_fast_deflate() {
  static const bool all = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.2") &&
           __builtin_cpu_supports("aes") && __builtin_cpu_supports("avx");
  }();
  return all;
}
