// version.h - what this build calls itself.
#pragma once

// For --version and the VN field of header lines.
inline const char* version_text() {
  return "torvesin-genomics-201611.03";
}
