#include "PrototypeTestUtil.h"

#include "eq/EQBandDesign.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using prototype_test::designed;
using prototype_test::levelDb;
using Shape = FilterShape;

constexpr double kButterworthQ = std::numbers::sqrt2 / 2;

namespace {

struct Range {
    double low = 1e9, high = -1e9;
};

Range levelRange(const AnalogFilterPrototype& filter, double from, double to) {
    Range range;
    for (double f = from; f <= to; f *= 1.0005) {
        const double level = levelDb(filter, f);
        range.low = std::min(range.low, level);
        range.high = std::max(range.high, level);
    }
    return range;
}

// The modulus k of the degree equation N K(k')/K(k) = K(k1')/K(k1), solved by bisection with the
// standard library's integrals: the stop band of an order-N elliptic low-pass starts at 1/k.
double stopBandEdge(int32_t order, double passRippleDb, double stopDb) {
    const double epsilon = std::sqrt(std::pow(10.0, passRippleDb / 10.0) - 1.0);
    const double k1 = epsilon / std::sqrt(std::pow(10.0, stopDb / 10.0) - 1.0);
    const double target = std::comp_ellint_1(std::sqrt(1.0 - k1 * k1)) / std::comp_ellint_1(k1);
    double low = 0.01, high = 0.999999;
    for (int32_t i = 0; i < 60; ++i) {
        const double k = 0.5 * (low + high);
        const double ratio = order * std::comp_ellint_1(std::sqrt(1.0 - k * k)) / std::comp_ellint_1(k);
        (ratio > target ? low : high) = k; // the ratio falls as k grows
    }
    return 1.0 / (0.5 * (low + high));
}

} // namespace

TEST(Brickwall, TwelfthOrderEllipticWithinRippleAndStopBand) {
    const double edge = stopBandEdge(12, 0.1, 90.0);
    for (Shape shape : {Shape::HighCut, Shape::LowCut}) {
        AnalogFilterPrototype brickwall;
        designBand(brickwall, {shape, 9.0f, 0.0f, 5.0f, 1.0, 1.0});
        ASSERT_EQ(brickwall.getFamily(), DesignFamily::Elliptic);
        ASSERT_EQ(brickwall.getNumSections(), 6);
        const bool lowPass = shape == Shape::HighCut;
        const Range pass = lowPass ? levelRange(brickwall, 1e-3, 1.0) : levelRange(brickwall, 1.0, 1e3);
        const Range stop = lowPass ? levelRange(brickwall, edge * 1.0001, 1e3)
                                   : levelRange(brickwall, 1e-3, 1.0 / (edge * 1.0001));
        EXPECT_LE(pass.high - pass.low, 0.1 + 1e-6);
        EXPECT_NEAR(pass.low, 0.0, 1e-6); // unity at DC (or at infinity for the high-pass)
        EXPECT_GE(pass.high - stop.high, 90.0 - 1e-6);
        // Equiripple: the stop band touches its bound.
        EXPECT_LT(pass.high - stop.high, 90.01);
    }
}

TEST(ChebyshevDesigns, RippleAndStopBandAtTheirDesignLevels) {
    for (int32_t order : {3, 4, 7}) {
        const auto typeOne = designed(Shape::HighCut, order, kButterworthQ, 0.0, DesignFamily::ChebyshevI);
        const Range pass = levelRange(typeOne, 1e-3, 1.0);
        EXPECT_NEAR(pass.low, 0.0, 1e-6) << order;
        EXPECT_NEAR(pass.high, 0.70710677, 1e-5) << order;
        // Unity at the ripple edge; the ripple sits at DC for odd orders only.
        EXPECT_NEAR(levelDb(typeOne, 1.0), 0.0, 1e-6);
        EXPECT_NEAR(levelDb(typeOne, 1e-6), order % 2 == 1 ? 0.70710677 : 0.0, 1e-6);

        const auto typeTwo = designed(Shape::HighCut, order, kButterworthQ, 0.0, DesignFamily::ChebyshevII);
        EXPECT_NEAR(levelDb(typeTwo, 1e-4), 0.0, 1e-6);
        EXPECT_LE(levelRange(typeTwo, 1.0, 1e3).high, -60.0 + 1e-6) << order;
        EXPECT_GT(levelRange(typeTwo, 1.0, 1e3).high, -60.01) << order;
    }
}
