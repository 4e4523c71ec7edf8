// SPDX-License-Identifier: Apache-2.0
#include "util/spline.h"

#include <Eigen/Dense>
#include <unsupported/Eigen/Splines>

#include "platform/log.h"

constexpr int kDegree = 4;

int spline(double* x, double* y, int n, double* xi, double* yi, int m) {
    typedef Eigen::Spline<double, 2> Curve;
    if (n < 2) {
        // Eigen cannot fit through fewer than two points: one point is a
        // constant, none is refused.
        if (n < 1) {
            VLOGE(VANDRO_TAG_UTILS, "%s: no points to fit",
                  "int spline(double_t*, double_t*, int, double_t*, double_t*, int)");
            return -1;
        }
        for (int k = 0; k < m; k++) yi[k] = y[0];
        return 0;
    }
    Eigen::Matrix<double, 2, Eigen::Dynamic> points(2, n);
    for (int k = 0; k < n; k++) {
        points(0, k) = x[k];
        points(1, k) = y[k];
    }
    Curve::KnotVectorType parameters;
    Eigen::ChordLengths(points, parameters);
    // Below degree + 1 points Eigen's fit reads outside its knot vector; the
    // highest degree those points allow stands in.
    const int degree = n > kDegree ? kDegree : n - 1;
    const Curve curve = Eigen::SplineFitting<Curve>::Interpolate(points, degree, parameters);
    for (int k = 0; k < m; k++) yi[k] = curve(xi[k])(1);
    return 0;
}
