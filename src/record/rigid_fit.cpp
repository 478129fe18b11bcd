#include "record/rigid_fit.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kv {
namespace {

using Mat4 = std::array<std::array<double, 4>, 4>;

// Eigenvector of the largest eigenvalue of a symmetric 4x4 matrix, by cyclic Jacobi
// rotations: small, branch-light and exact enough in double for any piece size.
std::array<double, 4> LargestEigenvector(Mat4 a) {
  Mat4 v{};
  for (int i = 0; i < 4; ++i) v[i][i] = 1.0;
  double scale = 0;
  for (const auto& row : a)
    for (double x : row) scale = std::max(scale, std::abs(x));
  if (scale == 0) return {1, 0, 0, 0};  // no information: the identity
  for (int sweep = 0; sweep < 32; ++sweep) {
    double off = 0;
    for (int p = 0; p < 4; ++p)
      for (int q = p + 1; q < 4; ++q) off += a[p][q] * a[p][q];
    // Off-diagonal mass 1e-12 of the largest entry leaves the rotation exact to float.
    if (off <= 1e-24 * scale * scale) break;
    for (int p = 0; p < 4; ++p) {
      for (int q = p + 1; q < 4; ++q) {
        const double apq = a[p][q];
        if (std::abs(apq) <= 1e-300) continue;
        const double theta = (a[q][q] - a[p][p]) / (2 * apq);
        const double t =
            (theta >= 0 ? 1.0 : -1.0) / (std::abs(theta) + std::sqrt(theta * theta + 1));
        const double c = 1 / std::sqrt(t * t + 1), s = t * c;
        for (int k = 0; k < 4; ++k) {
          const double akp = a[k][p], akq = a[k][q];
          a[k][p] = c * akp - s * akq;
          a[k][q] = s * akp + c * akq;
        }
        for (int k = 0; k < 4; ++k) {
          const double apk = a[p][k], aqk = a[q][k];
          a[p][k] = c * apk - s * aqk;
          a[q][k] = s * apk + c * aqk;
        }
        for (int k = 0; k < 4; ++k) {
          const double vkp = v[k][p], vkq = v[k][q];
          v[k][p] = c * vkp - s * vkq;
          v[k][q] = s * vkp + c * vkq;
        }
      }
    }
  }
  int best = 0;
  for (int i = 1; i < 4; ++i)
    if (a[i][i] > a[best][best]) best = i;
  return {v[0][best], v[1][best], v[2][best], v[3][best]};
}

template <class At>
RigidFit Fit(std::span<const Point3> base, size_t n, At at) {
  RigidFit fit;
  if (n == 0) return fit;
  double c[3] = {0, 0, 0};
  for (size_t i = 0; i < n; ++i) {
    const Point3& p = at(i);
    c[0] += p.x, c[1] += p.y, c[2] += p.z;
  }
  for (double& x : c) x /= static_cast<double>(n);
  // Cross-covariance S[a][b] = sum base_a * now_b, the now side centred.
  double s[3][3] = {};
  for (size_t i = 0; i < n; ++i) {
    const Point3& p = at(i);
    const double b[3] = {p.x - c[0], p.y - c[1], p.z - c[2]};
    const double r[3] = {base[i].x, base[i].y, base[i].z};
    for (int u = 0; u < 3; ++u)
      for (int w = 0; w < 3; ++w) s[u][w] += r[u] * b[w];
  }
  const double xx = s[0][0], xy = s[0][1], xz = s[0][2], yx = s[1][0], yy = s[1][1], yz = s[1][2],
               zx = s[2][0], zy = s[2][1], zz = s[2][2];
  const Mat4 m{{{xx + yy + zz, yz - zy, zx - xz, xy - yx},
                {yz - zy, xx - yy - zz, xy + yx, zx + xz},
                {zx - xz, xy + yx, -xx + yy - zz, yz + zy},
                {xy - yx, zx + xz, yz + zy, -xx - yy + zz}}};
  std::array<double, 4> q = n < 2 ? std::array<double, 4>{1, 0, 0, 0} : LargestEigenvector(m);
  const double len = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  for (double& x : q) x /= len;
  const double w = q[0], x = q[1], y = q[2], z = q[3];
  // Column-vector rotation R; our rows are the images of the axes, that is R's columns.
  const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                          {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                          {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}};
  for (int row = 0; row < 3; ++row)
    fit.tm.SetRow(row, {static_cast<float>(r[0][row]), static_cast<float>(r[1][row]),
                        static_cast<float>(r[2][row])});
  fit.tm.SetTrans({static_cast<float>(c[0]), static_cast<float>(c[1]), static_cast<float>(c[2])});
  float worst = 0;
  for (size_t i = 0; i < n; ++i) {
    const Point3& b = base[i];
    const Point3& p = at(i);
    // In double around the centroid: far from the origin float would drown the residual.
    const double d[3] = {
        r[0][0] * b.x + r[0][1] * b.y + r[0][2] * b.z + c[0] - p.x,
        r[1][0] * b.x + r[1][1] * b.y + r[1][2] * b.z + c[1] - p.y,
        r[2][0] * b.x + r[2][1] * b.y + r[2][2] * b.z + c[2] - p.z,
    };
    worst = std::max(worst, static_cast<float>(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]));
  }
  fit.maxError = std::sqrt(worst);
  return fit;
}

}  // namespace

RigidFit FitRigid(std::span<const Point3> base, const Point3* verts,
                  std::span<const uint32_t> index) {
  const size_t n = std::min(base.size(), index.size());
  return Fit(base, n, [&](size_t i) -> const Point3& { return verts[index[i]]; });
}

RigidFit FitRigid(std::span<const Point3> base, std::span<const Point3> now) {
  const size_t n = std::min(base.size(), now.size());
  return Fit(base, n, [&](size_t i) -> const Point3& { return now[i]; });
}

}  // namespace kv
