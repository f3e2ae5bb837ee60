#include "base/descriptor_limit.h"

#include <climits>
#include <dirent.h>
#include <sys/resource.h>

namespace {

constexpr unsigned long kUsualDescriptors =
    8;  // standard streams, reference and its index, what was inherited

}  // namespace

unsigned long raiseDescriptorLimit() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return ULONG_MAX;
  if (limit.rlim_cur < limit.rlim_max) {
    const rlimit raised = {limit.rlim_max, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  return limit.rlim_cur;
}

unsigned long openDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  if (folder == nullptr) return kUsualDescriptors;
  unsigned long count = 0;
  while (const dirent* entry = readdir(folder)) count += entry->d_name[0] != '.';
  closedir(folder);
  return count - 1;  // without the folder itself
}
