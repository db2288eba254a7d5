#pragma once

#include <cstdint>

// Jacobi elliptic functions and complete and incomplete integrals of the first kind, all with the
// modulus k (not the parameter m = k^2), computed through the arithmetic-geometric mean.
namespace elliptic {

struct JacobiValues {
    double sn = 0.0, cn = 1.0, dn = 1.0;
};

// K(k) = pi / (2 AGM(1, sqrt(1 - k^2))).
double completeIntegral(double k);

// F(phi, k): the u with am(u, k) = phi.
double incompleteIntegral(double phi, double k);

// sn, cn and dn of u by descending Landen transformation.
JacobiValues jacobi(double u, double k);

// The modulus k of an order-N elliptic low-pass whose discrimination is k1 (the degree equation).
double selectivity(int32_t order, double discrimination);

// sqrt(1 - k^2) without cancellation for k close to 1.
double complementaryModulus(double k);

} // namespace elliptic
