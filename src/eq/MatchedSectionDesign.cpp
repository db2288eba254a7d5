#include "eq/MatchedSectionDesign.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

using Shape = FilterShape;

constexpr double kPi = std::numbers::pi;
constexpr double kMaximumBilinearAngle = 3.1315928;
// Match frequencies stay clear of Nyquist, where tan(w/2) runs away.
constexpr std::array<double, 3> kMatchCaps{0.98 * kPi, 0.98 * kPi, 0.9751 * kPi};
// The smallest critical frequency used to scale the fit (radians per sample).
constexpr double kMinimumCritical = 1e-9;
// A fitted denominator must keep at least this damping; below it the bilinear image is used.
constexpr double kMinimumFittedDamping = 1e-5;

// What the match needs to know about one analog section, frequencies in radians per sample.
struct SectionData {
    int32_t order = 2;
    // Pole and zero frequencies, capped at pi; for shelves and Tilt Shelf the upper one comes first.
    std::array<double, 2> critical{};
    // Relative half bandwidth of a resonance: the geometric mean of pole and zero damping.
    double bandwidth = kButterworthDamping;
    // A zero pair on the frequency axis (a notch) sits at this frequency; 0 when there is none.
    double axisZero = 0.0;
    int32_t groupIndex = -1;
    // Both zeros at DC (a high-pass section): the digital section keeps them there.
    bool doubleZeroAtDc = false;
};

// The match frequencies: the upper one (pi stands for Nyquist itself) and three inside the band.
struct MatchFrequencies {
    double upper = kPi;
    std::array<double, 3> inner{};
};

// A squared magnitude (n0 + n1 u + n2 u^2) / (d0 + d1 u + d2 u^2) in the scaled bilinear variable.
struct PowerRatio {
    std::array<double, 3> numerator{};
    std::array<double, 3> denominator{1.0, 0.0, 0.0};
};

double clampedFrequency(double w) {
    return std::isfinite(w) ? std::clamp(w, 0.0, kPi) : kPi;
}

double naturalFrequency(double c2, double c0, double reference) {
    if (std::fabs(c2) <= kDesignEpsilon || c0 == 0.0)
        return 0.0;
    return clampedFrequency(std::sqrt(std::fabs(c0 / c2)) * reference);
}

double damping(double c2, double c1, double c0) {
    const double scale = std::sqrt(std::fabs(c2 * c0));
    return scale > 0.0 ? std::fabs(c1) / (2.0 * scale) : kButterworthDamping;
}

SectionData collectSectionData(const AnalogBiquadPrototype& section, Shape shape) {
    const auto& c = section.getCoefficients();
    const double reference = section.getReferenceFrequency();
    SectionData data;
    data.order = section.order();
    data.groupIndex = section.getGroupIndex();
    if (data.order == 1) {
        const double pole = c.a1 != 0.0 ? std::fabs(c.a0 / c.a1) : 0.0;
        const double zero = c.b1 != 0.0 ? std::fabs(c.b0 / c.b1) : 0.0;
        data.critical = {clampedFrequency(pole * reference), clampedFrequency(zero * reference)};
    } else {
        data.critical = {naturalFrequency(c.a2, c.a0, reference), naturalFrequency(c.b2, c.b0, reference)};
        const bool finiteZeros = std::fabs(c.b2) > kDesignEpsilon && std::fabs(c.b0) > kDesignEpsilon;
        const double poleDamping = damping(c.a2, c.a1, c.a0);
        data.bandwidth = finiteZeros ? std::sqrt(poleDamping * damping(c.b2, c.b1, c.b0)) : poleDamping;
        data.doubleZeroAtDc = std::fabs(c.b0) <= kDesignEpsilon && std::fabs(c.b1) <= kDesignEpsilon;
        if (finiteZeros && std::fabs(c.b1) <= kDesignEpsilon * std::sqrt(std::fabs(c.b2 * c.b0)))
            data.axisZero = data.critical[1];
    }
    if (data.critical[1] == 0.0)
        data.critical[1] = data.critical[0];
    if (isShelfOrTilt(shape) && data.critical[1] > data.critical[0])
        std::swap(data.critical[0], data.critical[1]);
    return data;
}

// Rises from 0 at 0.8 pi to 1 at pi: how much a resonance is squeezed against Nyquist.
double proximityWeight(double w) {
    const double x = std::min(std::max(w / kPi - 0.8, 0.0), 0.2) * 5.0;
    return x * x;
}

MatchFrequencies chooseMatchFrequencies(const SectionData& data, Shape shape, double reference) {
    const double w1 = std::max(data.critical[0], kMinimumCritical);
    const double p = proximityWeight(w1);
    const double s = std::clamp(p * p / 4.0 + data.bandwidth, 0.1, 0.8);
    MatchFrequencies match;
    auto& w = match.inner;
    std::array<double, 3> caps = kMatchCaps;
    if (data.order == 1) {
        if (shape == Shape::TiltShelf) {
            w[0] = std::min(reference, 0.6 * kPi);
            w = {w[0], 0.05 * w[0], 0.5 * w[0]};
        } else if (isShelf(shape)) {
            w[0] = reference / 2.0;
            w = {w[0], (1.0 - s) * w[0], (1.0 - 0.05 * s) * w[0]};
        } else {
            w = {0.9 * kPi, 0.0045 * kPi, 0.09 * kPi};
        }
    } else if (shape == Shape::Bell && data.groupIndex < 0) {
        match.upper = 1.2 * w1 < 0.9 * kPi ? 0.9 * kPi : std::min(1.2 * w1, kPi);
        w = {w1, w1 * (1.0 - s), w1 * (1.0 - 0.05 * s)};
    } else if (isShelfOrTilt(shape)) {
        const double lower = data.critical[1];
        if (w1 < 0.95 * kPi && shape != Shape::TiltShelf) {
            const double x = std::max(w1, 0.7) * 0.14;
            match.upper = std::max(std::min((x * x + 0.77) * kPi, kPi), (kPi - w1) * 0.1 + w1);
            caps[0] = match.upper - 0.15 * kPi * std::clamp(w1 - lower - 0.15, 0.0, 1.0);
            caps[1] = 0.95 * caps[0];
            caps[2] = 0.995 * caps[1];
            w = {w1, lower, (1.0 - 0.05 * s) * lower};
        } else {
            w = {lower, (1.0 - s) * lower, (1.0 - 0.05 * s) * lower};
        }
    } else {
        const double r = 1.0 + std::max(data.bandwidth, 0.1);
        const double upperFeature = std::min(std::max(data.critical[0], data.critical[1]), 0.85 * kPi);
        const double lowerFeature = std::min(data.critical[0], data.critical[1]);
        if (lowerFeature * r < upperFeature) {
            // Poles and zeros apart: both features and the slope between them.
            w = {upperFeature, lowerFeature, std::sqrt(upperFeature * lowerFeature)};
        } else {
            w = {upperFeature, upperFeature / r,
                 std::min(upperFeature * r, upperFeature + (kPi - upperFeature) * 0.5)};
        }
        match.upper = std::max(w[0], w[2]) < 0.8 * kPi ? 0.9 * kPi : kPi;
    }
    for (size_t i = 0; i < w.size(); ++i)
        w[i] = std::min(w[i], caps[i]);
    return match;
}

// Gaussian elimination with partial pivoting on rows [coefficients | right-hand side].
template <size_t N>
bool solveLinear(std::array<std::array<double, N + 1>, N> rows, std::array<double, N>& x) {
    for (size_t column = 0; column < N; ++column) {
        size_t pivot = column;
        for (size_t r = column + 1; r < N; ++r)
            if (std::fabs(rows[r][column]) > std::fabs(rows[pivot][column]))
                pivot = r;
        if (!(std::fabs(rows[pivot][column]) > 1e-300))
            return false;
        std::swap(rows[column], rows[pivot]);
        for (size_t r = column + 1; r < N; ++r) {
            const double factor = rows[r][column] / rows[column][column];
            for (size_t j = column; j <= N; ++j)
                rows[r][j] -= factor * rows[column][j];
        }
    }
    for (size_t i = N; i-- > 0;) {
        double sum = rows[i][N];
        for (size_t j = i + 1; j < N; ++j)
            sum -= rows[i][j] * x[j];
        x[i] = sum / rows[i][i];
        if (!std::isfinite(x[i]))
            return false;
    }
    return true;
}

// Scales a row to unit size so that points far above the critical frequency weigh like the others.
template <size_t M>
std::array<double, M> equilibrated(std::array<double, M> row) {
    double largest = 0.0;
    for (double value : row)
        largest = std::max(largest, std::fabs(value));
    if (largest > 0.0)
        for (double& value : row)
            value /= largest;
    return row;
}

double evaluate(const std::array<double, 3>& polynomial, double u) {
    return (polynomial[2] * u + polynomial[1]) * u + polynomial[0];
}

struct MatchPoint {
    double u = 0.0; // +inf for Nyquist
    double power = 0.0;
};

// The five-point match. Every digital biquad is the bilinear image of some s-domain biquad
// B(s)/A(s), s = (z - 1)/(z + 1); on the unit circle s = j t with t = tan(w/2). Scaling s by a
// constant tc (s' = s/tc) keeps that true, and with u = (t/tc)^2 the squared magnitude is
//   |H|^2 = |B(j sqrt u)|^2 / |A(j sqrt u)|^2 = (n0 + n1 u + n2 u^2) / (d0 + d1 u + d2 u^2),
// where for A = a2 s'^2 + a1 s' + a0: d0 = a0^2, d1 = a1^2 - 2 a0 a2, d2 = a2^2 (likewise for B).
// So the squared magnitude is a ratio of quadratics in u, and matching the analog value G_i at
// u_i gives N(u_i) - G_i D(u_i) = 0: linear in the coefficients. With d0 = 1 and n0 = G0 (DC),
// four points (the upper match frequency and three more) fix (n1, n2, d1, d2); at Nyquist u is
// infinite and the equation divided by u^2 reads n2 = GN d2. spectralFactor() then recovers
// (b, a) and toDigital(tc) the digital section. All five coefficients free here.
bool fitFree(double dcPower, const std::array<MatchPoint, 4>& points, PowerRatio& ratio) {
    std::array<std::array<double, 5>, 4> rows{};
    for (size_t i = 0; i < points.size(); ++i) {
        const auto [u, g] = points[i];
        rows[i] = std::isinf(u)
                      ? std::array<double, 5>{0.0, 1.0, 0.0, -g, 0.0}
                      : equilibrated(std::array<double, 5>{u, u * u, -g * u, -g * u * u, g - dcPower});
    }
    std::array<double, 4> x{};
    if (!solveLinear<4>(rows, x))
        return false;
    ratio.numerator = {dcPower, x[0], x[1]};
    ratio.denominator = {1.0, x[2], x[3]};
    return true;
}

// A numerator fixed up to a factor c, N(u) = c M(u): a notch keeps its zero pair exactly on the unit
// circle (M = (1 - u/uz)^2), a high-pass its double zero at DC (M = u^2). Three unknowns (c, d1, d2)
// through three points.
bool fitFixedNumerator(const std::array<double, 3>& shape, const std::array<MatchPoint, 3>& points,
                       PowerRatio& ratio) {
    std::array<std::array<double, 4>, 3> rows{};
    for (size_t i = 0; i < points.size(); ++i) {
        const auto [u, g] = points[i];
        rows[i] = std::isinf(u)
                      ? std::array<double, 4>{shape[2], 0.0, -g, 0.0}
                      : equilibrated(std::array<double, 4>{evaluate(shape, u), -g * u, -g * u * u, g});
    }
    std::array<double, 3> x{};
    if (!solveLinear<3>(rows, x))
        return false;
    ratio.numerator = {x[0] * shape[0], x[0] * shape[1], x[0] * shape[2]};
    ratio.denominator = {1.0, x[1], x[2]};
    return true;
}

// Spectral factor of c0 + c1 u + c2 u^2 = |q0 + q1 s + q2 s^2|^2 at s = j sqrt(u): q0 = sqrt(c0),
// q2 = sqrt(c2), q1 = sqrt(c1 + 2 q0 q2). Taking the non-negative roots puts every root in the
// closed left half plane: a stable, minimum-phase section. Negative intermediates clamp to 0.
std::array<double, 3> spectralFactor(const std::array<double, 3>& power) {
    const double q0 = std::sqrt(std::max(power[0], 0.0));
    const double q2 = std::sqrt(std::max(power[2], 0.0));
    return {q0, std::sqrt(std::max(power[1] + 2.0 * q0 * q2, 0.0)), q2};
}

bool factorise(const PowerRatio& ratio, AnalogSectionCoefficients& out) {
    const auto b = spectralFactor(ratio.numerator);
    const auto a = spectralFactor(ratio.denominator);
    out = {b[2], b[1], b[0], a[2], a[1], a[0]};
    const bool finite = std::isfinite(b[0]) && std::isfinite(b[1]) && std::isfinite(b[2]) &&
                        std::isfinite(a[1]) && std::isfinite(a[2]);
    // A denominator that lost its damping would put the poles on the unit circle, and a numerator of
    // higher degree than the denominator a pole at z = -1.
    // A denominator that needs clamping has a pole on the unit circle, and a numerator that needs
    // more than rounding a dip the analog section does not have: the fit is rejected.
    const auto nonNegative = [](const std::array<double, 3>& c) {
        const double cross = 2.0 * std::sqrt(std::max(c[0], 0.0) * std::max(c[2], 0.0));
        return c[0] >= 0.0 && c[2] >= 0.0 && c[1] + cross >= -1e-9 * (std::fabs(c[1]) + cross);
    };
    const bool positive = nonNegative(ratio.numerator) && nonNegative(ratio.denominator);
    const bool damped = a[1] > kMinimumFittedDamping * 2.0 * std::sqrt(a[0] * std::max(a[2], kDesignEpsilon));
    const bool proper = a[2] > kDesignEpsilon || b[2] <= kDesignEpsilon;
    return finite && positive && damped && proper;
}

bool isFlat(double dcPower, const std::array<MatchPoint, 4>& points, double tolerance) {
    const double reference = points[1].power;
    const auto close = [&](double g) { return std::fabs(g - reference) <= tolerance * reference; };
    return close(dcPower) &&
           std::all_of(points.begin(), points.end(), [&](const MatchPoint& p) { return close(p.power); });
}

DigitalSectionCoefficients flatSection(double power, DigitalForm form) {
    const double gain = std::sqrt(power);
    if (form == DigitalForm::DirectForm)
        return {gain, 0.0, 0.0, 0.0, 0.0};
    return {0.0, 0.0, gain, 0.0, gain};
}

// The matched digital image of one section; false when the fit breaks down (the caller then
// falls back to the bilinear image).
bool matchSection(const AnalogBiquadPrototype& section, Shape shape, DigitalForm form, double tolerance,
                  DigitalSectionCoefficients& out) {
    const SectionData data = collectSectionData(section, shape);
    const MatchFrequencies match = chooseMatchFrequencies(data, shape, section.getReferenceFrequency());

    // The fit runs in u = (t / tc)^2, t = tan(w/2), so its coefficients stay near 1 at any frequency.
    const double tc = std::tan(std::clamp(data.critical[0], kMinimumCritical, kMatchCaps[0]) / 2.0);
    const auto pointAt = [&](double w) {
        const double u =
            w >= kPi ? std::numeric_limits<double>::infinity() : std::pow(std::tan(w / 2.0) / tc, 2);
        return MatchPoint{u, section.squaredMagnitude(std::min(w, kPi))};
    };
    const double dcPower = section.squaredMagnitude(0.0);
    const std::array<MatchPoint, 4> points{pointAt(match.upper), pointAt(match.inner[0]),
                                           pointAt(match.inner[1]), pointAt(match.inner[2])};
    if (!std::isfinite(dcPower) || !std::all_of(points.begin(), points.end(),
                                                [](const MatchPoint& p) { return std::isfinite(p.power); }))
        return false;
    if (isFlat(dcPower, points, tolerance)) {
        out = flatSection(points[1].power, form);
        return true;
    }

    PowerRatio ratio;
    bool solved = false;
    if (data.axisZero > 0.0 && data.axisZero < kMatchCaps[0]) {
        const double uz = pointAt(data.axisZero).u;
        solved = fitFixedNumerator({1.0, -2.0 / uz, 1.0 / (uz * uz)},
                                   {MatchPoint{0.0, dcPower}, points[0], points[2]}, ratio);
    } else if (data.doubleZeroAtDc) {
        solved = fitFixedNumerator({0.0, 0.0, 1.0}, {points[0], points[1], points[2]}, ratio);
    } else {
        solved = fitFree(dcPower, points, ratio);
    }
    AnalogSectionCoefficients fitted;
    if (!solved || !factorise(ratio, fitted)) {
        // No stable section passes through all five points: the bilinear image pre-warped at the
        // section's own critical frequency keeps at least that frequency in place.
        const double critical = std::clamp(data.critical[0], kMinimumCritical, kMatchCaps[0]);
        out = section.toDigital(tc * section.getReferenceFrequency() / critical, form);
        return true;
    }
    // The fitted section is the bilinear image of an s-domain section normalised to tc.
    AnalogBiquadPrototype image;
    image.setCoefficients(fitted);
    out = image.toDigital(tc, form);
    return std::all_of(out.begin(), out.end(), [](double v) { return std::isfinite(v); });
}

} // namespace

int32_t designDigitalSections(const AnalogFilterPrototype& prototype, double w0,
                              CoefficientCalculation calculation, DigitalForm form, double tolerance,
                              DigitalSectionCoefficients* out) {
    const double angle =
        std::isfinite(w0) ? std::clamp(w0, 1e-9, kMaximumBilinearAngle) : kMaximumBilinearAngle;
    const double k = std::tan(angle / 2.0);
    const bool matched = calculation == CoefficientCalculation::MatchedMagnitude &&
                         prototype.getFamily() == DesignFamily::Butterworth &&
                         prototype.getShape() != Shape::AllPass;
    const int32_t count = prototype.getNumSections();
    for (int32_t i = 0; i < count; ++i) {
        const auto& section = prototype.getSection(i);
        if (!matched || !matchSection(section, prototype.getShape(), form, tolerance, out[i]))
            out[i] = section.toDigital(k * section.getRelativeReference(), form);
    }
    return count;
}
