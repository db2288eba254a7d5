#include "foundation/EllipticFunctions.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(EllipticFunctions, AgreeWithTheStandardLibrary) {
    for (double k : {0.0, 0.3, 0.9, 0.999999}) {
        EXPECT_NEAR(elliptic::completeIntegral(k), std::comp_ellint_1(k), 1e-11);
        for (double phi : {0.1, 0.8, 1.5}) {
            const double u = std::ellint_1(k, phi);
            EXPECT_NEAR(elliptic::incompleteIntegral(phi, k), u, 1e-11);
            const auto values = elliptic::jacobi(u, k);
            EXPECT_NEAR(values.sn, std::sin(phi), 1e-8);
            EXPECT_NEAR(values.cn, std::cos(phi), 1e-8);
            EXPECT_NEAR(values.dn, std::sqrt(1.0 - k * k * std::sin(phi) * std::sin(phi)), 1e-8);
        }
    }
}
