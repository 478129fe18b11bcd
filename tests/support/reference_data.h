// The data made by other programs that the tests compare against, and point-set comparison.
// Tests that include this link zlib.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "geom/point.h"

namespace kvtest {

// tests/data in the source tree: the data ships with the repository, so a fresh clone tests
// with nothing beside it.
inline std::filesystem::path ReferenceDataDir() {
  return std::filesystem::path(KV_SOURCE_DIR) / "tests" / "data";
}

// A gzip file's contents, or "" when it cannot be read.
inline std::string ReadGzip(const std::filesystem::path& p) {
  gzFile f = gzopen(p.string().c_str(), "rb");
  if (!f) return {};
  std::string out;
  char buf[1 << 16];
  for (int n; (n = gzread(f, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
  gzclose(f);
  return out;
}

// Largest distance from a point of `from` to its nearest point of `to`.
inline float OneWayDistance(const std::vector<kv::Point3>& from,
                            const std::vector<kv::Point3>& to) {
  float worst = 0;
  for (const kv::Point3& p : from) {
    float best = INFINITY;
    for (const kv::Point3& q : to) best = std::min(best, (p - q).LengthSquared());
    worst = std::max(worst, best);
  }
  return std::sqrt(worst);
}

// Hausdorff distance: the two sets match within it, whatever their order and duplicates.
inline float PointSetDistance(const std::vector<kv::Point3>& a, const std::vector<kv::Point3>& b) {
  return std::max(OneWayDistance(a, b), OneWayDistance(b, a));
}

}  // namespace kvtest
