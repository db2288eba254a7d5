#include "eq/MatchedSectionDesign.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>

// Derivation. Every digital biquad is the bilinear image of some s-domain biquad B(s)/A(s) with
// s = (z - 1)/(z + 1); on the unit circle s = j t, t = tan(w/2). Scaling s by a constant tc keeps
// that true, and with u = (t/tc)^2 the squared magnitude of the digital section is
//   |H|^2 = (n0 + n1 u + n2 u^2) / (1 + d1 u + d2 u^2),
// where for A = a2 s^2 + a1 s + 1: d1 = a1^2 - 2 a2, d2 = a2^2, and likewise for B. So the digital
// power is a ratio of quadratics in u (u = 0 at DC, u = inf at Nyquist), and "digital power =
// analog power G at u" reads N(u) - G D(u) = 0: linear in x = (n0, n1, n2, d1, d2). Five such
// conditions fix the section; the power polynomials then factor into a stable, minimum-phase
// section (spectralFactor).
//
// The conditions, in order: DC; what the analog zeros dictate where a digital section can copy
// them exactly (zeros at DC stay there, with the analog low-frequency asymptote; a zero pair on the
// frequency axis stays on the unit circle at the analog notch frequency); the section's feature
// frequency; then as many outer conditions as are left free. Which outer conditions fit best
// depends on the section (a narrow resonance wants them close, a wide one far, a cut its stop
// band), so a few candidate sets are solved and the one with the smallest worst deviation over a
// set of sample points is kept. The outer conditions: match frequencies one and two "widths" to
// either side of the feature, the pole and zero frequencies, a high point, the top of the band
// (0.45 fs), no u^2 terms at all (a first-order image, the best a section whose poles lie far
// beyond Nyquist can do), and Nyquist, where the digital response turns flat while the analog one
// keeps moving: it takes the analog power of the top of the band. A first-order analog section may
// come out second order. The plain bilinear image at the filter's own k = tan(w0/2) competes as
// well, so a section never ends up worse than the bilinear design on the sample points, and it is
// the fall-back when no candidate factors into a stable section.

namespace {

using Shape = FilterShape;

constexpr double kPi = std::numbers::pi;
constexpr double kMaximumBilinearAngle = 3.1315928;
// Below 1 Hz at 96 kHz; lower filter frequencies would put bilinear poles on the unit circle.
constexpr double kLowestAngle = 1e-5;
// The top of the band that is matched; Nyquist takes the analog power found here.
constexpr double kTopOfBand = 0.9 * kPi;
constexpr double kLowestFeature = 1e-6;
// A fitted denominator must keep at least this damping; below it the fit is rejected.
constexpr double kMinimumFittedDamping = 1e-5;
// Sample powers this far below the section's largest one no longer count as deviations.
constexpr double kPowerFloor = 1e-8;
// A candidate this close (a power ratio; 0.02 dB) ends the search.
constexpr double kGoodEnough = 1.0046;

constexpr int32_t kUnknowns = 5; // n0, n1, n2, d1, d2
using Vector = std::array<double, kUnknowns>;

// What the match needs to know about one analog section, frequencies in radians per sample.
struct SectionData {
    double poleFrequency = 0.0;
    double zeroFrequency = 0.0; // finite, non-zero zeros; 0 when there are none
    double poleDamping = kButterworthDamping;
    double zeroDamping = 0.0; // 0 when there are no finite zeros
    int32_t zerosAtDc = 0;
    bool notch = false; // a zero pair on the frequency axis
};

bool isZero(double value) {
    return std::fabs(value) <= kDesignEpsilon;
}

double naturalFrequency(double c2, double c0, double reference) {
    return isZero(c2) || c0 == 0.0 ? 0.0 : std::sqrt(std::fabs(c0 / c2)) * reference;
}

double dampingOf(double c2, double c1, double c0) {
    const double scale = std::sqrt(std::fabs(c2 * c0));
    return scale > 0.0 ? std::fabs(c1) / (2.0 * scale) : 0.0;
}

SectionData collectSectionData(const AnalogBiquadPrototype& section) {
    const auto& c = section.getCoefficients();
    const double reference = section.getReferenceFrequency();
    SectionData data;
    if (section.order() == 1) {
        data.poleFrequency = c.a1 != 0.0 ? std::fabs(c.a0 / c.a1) * reference : 0.0;
        data.zeroFrequency = c.b1 != 0.0 && !isZero(c.b0) ? std::fabs(c.b0 / c.b1) * reference : 0.0;
        data.zerosAtDc = isZero(c.b0) ? 1 : 0;
        return data;
    }
    data.poleFrequency = naturalFrequency(c.a2, c.a0, reference);
    data.poleDamping = dampingOf(c.a2, c.a1, c.a0);
    data.zerosAtDc = isZero(c.b0) ? (isZero(c.b1) ? 2 : 1) : 0;
    if (data.zerosAtDc == 0) {
        data.zeroFrequency = naturalFrequency(c.b2, c.b0, reference);
        data.zeroDamping = data.zeroFrequency > 0.0 ? dampingOf(c.b2, c.b1, c.b0) : 0.0;
    }
    data.notch =
        data.zeroFrequency > 0.0 && std::fabs(c.b1) <= kDesignEpsilon * std::sqrt(std::fabs(c.b2 * c.b0));
    return data;
}

// The section's feature: the centre of a Bell, the half-gain point of a shelf (the geometric mean
// of its pole and zero frequencies), the corner of a cut (there every section of the cascade is
// exact, so the whole band is too). Poles or zeros beyond the band leave the ones inside: the
// section changes most around them.
double featureFrequency(const SectionData& data) {
    constexpr double kHighestFeature = 0.95 * kTopOfBand;
    const auto inBand = [](double w) { return w > 0.0 && w < kTopOfBand; };
    const bool poles = inBand(data.poleFrequency), zeros = inBand(data.zeroFrequency);
    const double w = poles && zeros ? std::sqrt(data.zeroFrequency * data.poleFrequency)
                     : poles        ? data.poleFrequency
                     : zeros        ? data.zeroFrequency
                                    : std::max(data.poleFrequency, data.zeroFrequency);
    return std::clamp(w, kLowestFeature, kHighestFeature);
}

// The "width" of a section as a frequency ratio: as far as its pole and zero frequencies lie apart
// (a shelf), at least as far as a resonance is wide (a Bell: the geometric mean of pole and zero
// damping is its relative bandwidth).
double widthRatio(const SectionData& data) {
    const double bandwidth =
        data.zeroDamping > 0.0 ? std::sqrt(data.poleDamping * data.zeroDamping) : data.poleDamping;
    const double span = data.zeroFrequency > 0.0 && data.poleFrequency > 0.0
                            ? std::sqrt(std::max(data.zeroFrequency / data.poleFrequency,
                                                 data.poleFrequency / data.zeroFrequency))
                            : 1.0;
    // Plain cut sections (no zeros, or both at DC) share one width, and with it one sample grid.
    if (data.zeroFrequency == 0.0 && data.zerosAtDc != 1)
        return 2.0;
    return std::clamp(std::max(1.0 + 0.75 * bandwidth, span), 1.1, 2.0);
}

// Linear conditions c . x = rhs on x = (n0, n1, n2, d1, d2).
struct Condition {
    Vector c{};
    double rhs = 0.0;
};

// Gaussian elimination with partial pivoting.
bool solve(const std::array<Condition, kUnknowns>& conditions, Vector& x) {
    std::array<std::array<double, kUnknowns + 1>, kUnknowns> rows;
    for (size_t r = 0; r < kUnknowns; ++r) {
        std::copy(conditions[r].c.begin(), conditions[r].c.end(), rows[r].begin());
        rows[r][kUnknowns] = conditions[r].rhs;
    }
    for (size_t column = 0; column < kUnknowns; ++column) {
        size_t pivot = column;
        for (size_t r = column + 1; r < kUnknowns; ++r)
            if (std::fabs(rows[r][column]) > std::fabs(rows[pivot][column]))
                pivot = r;
        if (!(std::fabs(rows[pivot][column]) > 1e-300))
            return false;
        std::swap(rows[column], rows[pivot]);
        const double inverse = 1.0 / rows[column][column];
        for (size_t r = column + 1; r < kUnknowns; ++r) {
            const double factor = rows[r][column] * inverse;
            if (factor == 0.0)
                continue;
            for (size_t j = column + 1; j <= kUnknowns; ++j)
                rows[r][j] -= factor * rows[column][j];
        }
    }
    for (size_t i = kUnknowns; i-- > 0;) {
        double sum = rows[i][kUnknowns];
        for (size_t j = i + 1; j < kUnknowns; ++j)
            sum -= rows[i][j] * x[j];
        x[i] = sum / rows[i][i];
        if (!std::isfinite(x[i]))
            return false;
    }
    return true;
}

// Spectral factor of c0 + c1 u + c2 u^2 = |q0 + q1 s + q2 s^2|^2 at s = j sqrt(u): q0 = sqrt(c0),
// q2 = sqrt(c2), q1 = sqrt(c1 + 2 q0 q2). Taking the non-negative roots puts every root in the
// closed left half plane: a stable, minimum-phase section. Negative intermediates clamp to 0.
std::array<double, 3> spectralFactor(double c0, double c1, double c2) {
    const double q0 = std::sqrt(std::max(c0, 0.0));
    const double q2 = std::sqrt(std::max(c2, 0.0));
    return {q0, std::sqrt(std::max(c1 + 2.0 * q0 * q2, 0.0)), q2};
}

// A power polynomial that needs more than rounding to become non-negative would be a dip the
// analog section does not have (numerator) or a pole on the unit circle (denominator).
bool nonNegative(double c0, double c1, double c2) {
    const double cross = 2.0 * std::sqrt(std::max(c0, 0.0) * std::max(c2, 0.0));
    return c0 >= -1e-12 && c2 >= -1e-12 && c1 + cross >= -1e-9 * (std::fabs(c1) + cross);
}

bool factorise(const Vector& x, AnalogSectionCoefficients& out) {
    if (!nonNegative(x[0], x[1], x[2]) || !nonNegative(1.0, x[3], x[4]))
        return false;
    const auto b = spectralFactor(x[0], x[1], x[2]);
    const auto a = spectralFactor(1.0, x[3], x[4]);
    out = {b[2], b[1], b[0], a[2], a[1], a[0]};
    const bool firstOrder = a[2] <= kDesignEpsilon;
    const bool damped = firstOrder ? a[1] > 0.0 : a[1] > kMinimumFittedDamping * 2.0 * std::sqrt(a[2]);
    // A numerator of higher degree than the denominator would put a pole at z = -1.
    const bool proper = !firstOrder || b[2] <= kDesignEpsilon;
    return damped && proper;
}

DigitalSectionCoefficients flatSection(double power, DigitalForm form) {
    const double gain = std::sqrt(power);
    if (form == DigitalForm::DirectForm)
        return {gain, 0.0, 0.0, 0.0, 0.0};
    return {0.0, 0.0, gain, 0.0, gain};
}

// The sample points of one section: the match frequencies of the candidates first, then one below
// them all and one between each two neighbours, where a fit strays most.
// u = (tan(w/2) / tc)^2 with tc = tan(feature / 2).
enum Sample : int32_t {
    kFeature,
    kBelow,
    kAbove,
    kFarBelow,
    kFarAbove,
    kHigh,
    kTop,
    kPole,
    kZero,
    kSamplePoints
};
constexpr int32_t kMaximumSamples = 2 * kSamplePoints + 1;

// The sample frequencies, which depend only on the section's feature, width and in-band pole and
// zero frequencies: the sections of a cut share them, and so one grid.
struct SampleGrid {
    std::array<double, 4> key{-1.0, 0.0, 0.0, 0.0};
    std::array<double, kMaximumSamples> w{};
    std::array<double, kMaximumSamples> u{};
    int32_t count = 0;
    double tc = 1.0;

    void prepare(const SectionData& data, double feature, double ratio) {
        // Pole and zero frequencies outside the band stand in at the feature (candidates using
        // them then repeat a condition and are skipped).
        const auto inBand = [&](double f) { return f > 0.0 && f < kTopOfBand ? f : feature; };
        const std::array<double, 4> newKey{feature, ratio, inBand(data.poleFrequency),
                                           inBand(data.zeroFrequency)};
        if (newKey == key)
            return;
        key = newKey;
        const double farAbove = std::min(feature * ratio * ratio, 0.5 * (feature + kTopOfBand));
        const double above = std::min(feature * ratio, 0.5 * (feature + farAbove));
        std::array<double, kSamplePoints> sorted{feature,    feature / ratio,
                                                 above,      feature / (ratio * ratio),
                                                 farAbove,   std::sqrt(farAbove * kTopOfBand),
                                                 kTopOfBand, key[2],
                                                 key[3]};
        std::copy(sorted.begin(), sorted.end(), w.begin());
        std::sort(sorted.begin(), sorted.end());
        count = kSamplePoints;
        w[static_cast<size_t>(count++)] = sorted[0] / ratio;
        for (size_t i = 1; i < sorted.size(); ++i)
            w[static_cast<size_t>(count++)] = std::sqrt(sorted[i - 1] * sorted[i]);
        tc = std::tan(feature / 2.0);
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            const double t = std::tan(w[i] / 2.0) / tc;
            u[i] = t * t;
        }
    }
};

// One section's analog power on the grid.
struct Samples {
    const SampleGrid& grid;
    std::array<double, kMaximumSamples> power{};
    std::array<double, kMaximumSamples> inverseFloored{}; // 1 / max(power, floor)
    double floor = 0.0;

    Samples(const SampleGrid& sampleGrid, const AnalogBiquadPrototype& section) : grid(sampleGrid) {
        double largest = 0.0;
        for (size_t i = 0; i < static_cast<size_t>(grid.count); ++i) {
            power[i] = section.squaredMagnitude(grid.w[i]);
            largest = std::max(largest, power[i]);
        }
        floor = largest * kPowerFloor;
        for (size_t i = 0; i < static_cast<size_t>(grid.count); ++i)
            inverseFloored[i] = 1.0 / std::max(power[i], floor);
    }
};

// Worst ratio (>= 1) between a candidate's power and the analog one over the sample points.
template <typename Power>
double worstRatio(const Samples& s, Power digitalPower) {
    double highest = 1.0, lowest = 1.0;
    for (size_t i = 0; i < static_cast<size_t>(s.grid.count); ++i) {
        const double ratio = std::fmax(digitalPower(s.grid.u[i]), s.floor) * s.inverseFloored[i];
        highest = std::fmax(highest, ratio);
        lowest = std::fmin(lowest, ratio);
    }
    return lowest > 0.0 ? std::fmax(highest, 1.0 / lowest) : HUGE_VAL;
}

double fittedPower(const Vector& x, double u) {
    return (x[0] + (x[1] + x[2] * u) * u) / (1.0 + (x[3] + x[4] * u) * u);
}

// The analog power G at sample i, as a condition scaled to unit size.
Condition powerAt(const Samples& s, int32_t i) {
    const double u = s.grid.u[static_cast<size_t>(i)], g = s.power[static_cast<size_t>(i)];
    const double scale = 1.0 / std::max({1.0, u * u, g * u * u});
    return {{scale, u * scale, u * u * scale, -g * u * scale, -g * u * u * scale}, g * scale};
}

// The conditions every candidate shares: DC, the structure of the zeros, the feature.
struct FixedConditions {
    std::array<Condition, kUnknowns> rows{};
    int32_t count = 0;

    void add(const Condition& condition) {
        if (count < kUnknowns)
            rows[static_cast<size_t>(count++)] = condition;
    }
};

FixedConditions fixedConditions(const AnalogBiquadPrototype& section, const SectionData& data,
                                const Samples& s) {
    FixedConditions fixed;
    fixed.add({{1.0, 0.0, 0.0, 0.0, 0.0}, data.zerosAtDc > 0 ? 0.0 : section.squaredMagnitude(0.0)});
    if (data.zerosAtDc == 2)
        fixed.add({{0.0, 1.0, 0.0, 0.0, 0.0}, 0.0});
    if (data.zerosAtDc > 0) {
        // The analog power rises from DC as (b w / (a0 wr))^(2m), the digital one as n_m u^m with
        // u = (w / (2 tc))^2: equal asymptotes make the low stop band exact.
        const auto& c = section.getCoefficients();
        const int32_t m = data.zerosAtDc;
        const double b = m == 2 ? c.b2 : c.b1;
        const double asymptote =
            std::pow(b / c.a0, 2.0) * std::pow(2.0 * s.grid.tc / section.getReferenceFrequency(), 2.0 * m);
        fixed.add({{0.0, m == 1 ? 1.0 : 0.0, m == 2 ? 1.0 : 0.0, 0.0, 0.0}, asymptote});
    }
    if (data.notch && data.zeroFrequency < kTopOfBand) {
        // N = n0 (1 - u / uz)^2: the digital zeros sit on the unit circle at the analog notch.
        const double t = std::tan(data.zeroFrequency / 2.0) / s.grid.tc;
        const double uz = t * t;
        fixed.add({{2.0 / uz, 1.0, 0.0, 0.0, 0.0}, 0.0});
        fixed.add({{-1.0 / (uz * uz), 0.0, 1.0, 0.0, 0.0}, 0.0});
    } else {
        fixed.add(powerAt(s, kFeature));
    }
    return fixed;
}

// Outer conditions of the candidates, taken from the front as far as each section has room.
constexpr int32_t kNyquist = -1;
constexpr int32_t kFirstOrder = -2; // with the next: no u^2 terms (a first-order image)
using Candidate = std::array<int32_t, 3>;
constexpr Candidate kPoleAndZero{kZero, kPole, kNyquist};
constexpr Candidate kHighAndFarBelow{kHigh, kFarBelow, kNyquist};
constexpr Candidate kFarOnBothSides{kFarAbove, kFarBelow, kNyquist};
constexpr Candidate kTopAndFar{kTop, kFarAbove, kFarBelow};
constexpr Candidate kNearOnBothSides{kBelow, kAbove, kNyquist};
constexpr Candidate kTopAndNear{kAbove, kTop, kBelow};
constexpr Candidate kFirstOrderImage{kFirstOrder, kFirstOrder, kAbove};

// The candidates worth trying per kind of section, most successful first (over the accuracy grid
// of bells, shelves, cuts, notches and band passes at 44.1 to 96 kHz).
constexpr std::array<Candidate, 7> kGeneralCandidates{kPoleAndZero,    kTopAndFar,  kNearOnBothSides,
                                                      kFarOnBothSides, kTopAndNear, kHighAndFarBelow,
                                                      kFirstOrderImage};
constexpr std::array<Candidate, 4> kLowPassCandidates{kTopAndFar, kHighAndFarBelow, kTopAndNear,
                                                      kFirstOrderImage};
constexpr std::array<Candidate, 3> kHighPassCandidates{kHighAndFarBelow, kFarOnBothSides, kTopAndNear};
constexpr std::array<Candidate, 5> kBandPassCandidates{kTopAndFar, kHighAndFarBelow, kTopAndNear,
                                                       kNearOnBothSides, kFirstOrderImage};
constexpr std::array<Candidate, 5> kNotchCandidates{kHighAndFarBelow, kTopAndFar, kTopAndNear,
                                                    kFarOnBothSides, kNearOnBothSides};

std::span<const Candidate> candidatesFor(const SectionData& data) {
    if (data.notch)
        return kNotchCandidates;
    if (data.zerosAtDc == 2)
        return kHighPassCandidates;
    if (data.zerosAtDc == 1)
        return kBandPassCandidates;
    if (data.zeroFrequency == 0.0)
        return kLowPassCandidates;
    return kGeneralCandidates;
}

// The best matched image of a section as analog coefficients normalised to tc; false when no
// candidate factors or the bilinear image (power given) is closer.
template <typename BilinearPower>
bool bestCandidate(const AnalogBiquadPrototype& section, const SectionData& data, const Samples& s,
                   BilinearPower bilinearPower, AnalogSectionCoefficients& best) {
    double bestRatio = worstRatio(s, bilinearPower);
    if (bestRatio < kGoodEnough)
        return false;
    const FixedConditions fixed = fixedConditions(section, data, s);
    const Condition nyquist{{0.0, 0.0, 1.0, 0.0, -section.squaredMagnitude(kTopOfBand)}, 0.0};
    const std::array<Condition, 2> firstOrder{Condition{{0.0, 0.0, 1.0, 0.0, 0.0}, 0.0},
                                              Condition{{0.0, 0.0, 0.0, 0.0, 1.0}, 0.0}};
    const auto free = static_cast<size_t>(kUnknowns - fixed.count);
    bool found = false;
    const auto candidates = candidatesFor(data);
    for (size_t c = 0; c < candidates.size(); ++c) {
        const auto& candidate = candidates[c];
        // Sections with fewer free conditions see the same candidate more than once.
        const auto sameStart = [&](const auto& other) {
            return std::equal(other.begin(), other.begin() + free, candidate.begin());
        };
        if (std::any_of(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(c), sameStart))
            continue;
        // A pole or zero frequency outside the band stands at the feature: nothing new.
        const auto atFeature = [&](int32_t sample) {
            return sample >= 0 && s.grid.w[static_cast<size_t>(sample)] == s.grid.w[kFeature];
        };
        if (std::any_of(candidate.begin(), candidate.begin() + static_cast<std::ptrdiff_t>(free), atFeature))
            continue;
        auto rows = fixed.rows;
        size_t firstOrderRows = 0;
        for (size_t j = 0; j < free; ++j) {
            const int32_t sample = candidate[j];
            rows[static_cast<size_t>(fixed.count) + j] = sample == kNyquist ? nyquist
                                                         : sample == kFirstOrder
                                                             ? firstOrder[firstOrderRows++]
                                                             : powerAt(s, sample);
        }
        Vector x{};
        AnalogSectionCoefficients fitted;
        if (firstOrderRows == 1 || !solve(rows, x) || !factorise(x, fitted))
            continue;
        const double ratio = worstRatio(s, [&](double u) { return fittedPower(x, u); });
        if (ratio < bestRatio) {
            bestRatio = ratio;
            best = fitted;
            found = true;
            if (bestRatio < kGoodEnough)
                break;
        }
    }
    return found;
}

// The matched digital image of one section; false when the bilinear image at the filter's k
// (kSection relative to the section's reference; the filter designed at w0) should be used.
bool matchSection(const AnalogBiquadPrototype& section, double w0, double kSection, DigitalForm form,
                  double tolerance, SampleGrid& grid, DigitalSectionCoefficients& out) {
    const SectionData data = collectSectionData(section);
    grid.prepare(data, featureFrequency(data), widthRatio(data));
    const Samples s(grid, section);
    const double dcPower = section.squaredMagnitude(0.0);
    const double nyquistPower = section.squaredMagnitude(kPi);
    if (!std::isfinite(dcPower) || !std::isfinite(nyquistPower) ||
        !std::all_of(s.power.begin(), s.power.begin() + grid.count,
                     [](double g) { return std::isfinite(g); }))
        return false;
    const double reference = s.power[kFeature];
    const auto close = [&](double g) { return std::fabs(g - reference) <= tolerance * reference; };
    if (close(dcPower) && close(nyquistPower) &&
        std::all_of(s.power.begin(), s.power.begin() + grid.count, close)) {
        out = flatSection(reference, form);
        return true;
    }
    // The bilinear image maps the digital frequency w to the analog w0 tan(w/2) / k.
    const double warp = grid.tc * w0 * section.getRelativeReference() / kSection;
    const auto bilinearPower = [&](double u) { return section.squaredMagnitude(std::sqrt(u) * warp); };
    AnalogSectionCoefficients fitted;
    if (!bestCandidate(section, data, s, bilinearPower, fitted))
        return false;
    // The fitted section is the bilinear image of an s-domain section normalised to tc.
    AnalogBiquadPrototype image;
    image.setCoefficients(fitted);
    out = image.toDigital(grid.tc, form);
    return std::all_of(out.begin(), out.end(), [](double v) { return std::isfinite(v); });
}

} // namespace

int32_t designDigitalSections(const AnalogFilterPrototype& prototype, double w0,
                              CoefficientCalculation calculation, DigitalForm form, double tolerance,
                              DigitalSectionCoefficients* out) {
    const double angle =
        std::isfinite(w0) ? std::clamp(w0, kLowestAngle, kMaximumBilinearAngle) : kMaximumBilinearAngle;
    const double k = std::tan(angle / 2.0);
    const bool matched = calculation == CoefficientCalculation::MatchedMagnitude &&
                         prototype.getFamily() == DesignFamily::Butterworth &&
                         prototype.getShape() != Shape::AllPass;
    const int32_t count = prototype.getNumSections();
    SampleGrid grid;
    for (int32_t i = 0; i < count; ++i) {
        const auto& section = prototype.getSection(i);
        const double kSection = k * section.getRelativeReference();
        if (!matched || !matchSection(section, angle, kSection, form, tolerance, grid, out[i]))
            out[i] = section.toDigital(kSection, form);
    }
    return count;
}
