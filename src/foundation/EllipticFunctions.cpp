#include "foundation/EllipticFunctions.h"

#include <array>
#include <cmath>
#include <numbers>

namespace elliptic {

namespace {

constexpr int32_t kMaximumLandenSteps = 14;
constexpr double kLandenTolerance = 1e-8;

} // namespace

double complementaryModulus(double k) {
    return std::sqrt((1.0 - k) * (1.0 + k));
}

double completeIntegral(double k) {
    double a = 1.0;
    double b = complementaryModulus(k);
    double difference = std::fabs(a - b);
    // Iterate until the difference stops shrinking: that is as close as double precision gets.
    for (;;) {
        const double nextA = 0.5 * (a + b);
        b = std::sqrt(a * b);
        a = nextA;
        const double nextDifference = std::fabs(a - b);
        if (!(nextDifference < difference))
            break;
        difference = nextDifference;
    }
    return std::numbers::pi / (2.0 * a);
}

double incompleteIntegral(double phi, double k) {
    double a = 1.0;
    double b = complementaryModulus(k);
    double power = 1.0;
    for (int32_t step = 0; step < 30 && std::fabs(a - b) > 1e-15 * a; ++step) {
        // tan(phi' - phi) = (b / a) tan(phi), keeping phi' on the branch near 2 phi.
        phi += std::atan(b / a * std::tan(phi)) + std::numbers::pi * std::floor(phi / std::numbers::pi + 0.5);
        const double nextA = 0.5 * (a + b);
        b = std::sqrt(a * b);
        a = nextA;
        power *= 2.0;
    }
    return phi / (power * a);
}

JacobiValues jacobi(double u, double k) {
    std::array<double, kMaximumLandenSteps + 1> a{};
    std::array<double, kMaximumLandenSteps + 1> c{};
    a[0] = 1.0;
    double b = complementaryModulus(k);
    c[0] = k;
    int32_t steps = 0;
    while (steps < kMaximumLandenSteps && std::fabs(c[static_cast<size_t>(steps)]) > kLandenTolerance) {
        const auto n = static_cast<size_t>(steps);
        a[n + 1] = 0.5 * (a[n] + b);
        c[n + 1] = 0.5 * (a[n] - b);
        b = std::sqrt(a[n] * b);
        ++steps;
    }
    double phi = std::ldexp(a[static_cast<size_t>(steps)] * u, steps);
    double previous = phi;
    for (int32_t n = steps; n > 0; --n) {
        previous = phi;
        const auto i = static_cast<size_t>(n);
        phi = 0.5 * (phi + std::asin(c[i] / a[i] * std::sin(phi)));
    }
    JacobiValues values;
    values.sn = std::sin(phi);
    values.cn = std::cos(phi);
    values.dn =
        steps > 0 ? values.cn / std::cos(previous - phi) : std::sqrt(1.0 - k * k * values.sn * values.sn);
    return values;
}

double selectivity(int32_t order, double discrimination) {
    const double k1 = discrimination;
    const double q = std::exp(-std::numbers::pi * completeIntegral(complementaryModulus(k1)) /
                              (order * completeIntegral(k1)));
    double numerator = 0.0;
    double denominator = 0.0;
    for (int32_t m = 0; m < 5; ++m) {
        numerator += std::pow(q, m * (m + 1));
        denominator += std::pow(q, (m + 1) * (m + 1));
    }
    const double ratio = numerator / (1.0 + 2.0 * denominator);
    return 4.0 * std::sqrt(q) * ratio * ratio;
}

} // namespace elliptic
