#include "eq/PoleZeroDesign.h"

#include "foundation/EllipticFunctions.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace pole_zero {

namespace {

using Complex = std::complex<double>;

const Complex kInfinity(std::numeric_limits<double>::infinity(), 0.0);
constexpr double kPi = std::numbers::pi;
// 20 log10(2): one order adds this much per octave.
constexpr double kDbPerOctavePerOrder = 6.020599913279624;

bool isInfinite(const Complex& value) {
    return std::isinf(value.real());
}

PoleZeroGroup pairGroup(Complex pole, Complex zero, double gain) {
    PoleZeroGroup group;
    group.numPoles = 2;
    group.poles[0] = pole;
    group.poles[1] = std::conj(pole);
    group.zeros[0] = zero;
    group.zeros[1] = std::conj(zero);
    group.gain = gain;
    return group;
}

PoleZeroGroup realGroup(double pole, Complex zero, double gain) {
    PoleZeroGroup group;
    group.numPoles = 1;
    group.poles[0] = pole;
    group.zeros[0] = zero;
    group.gain = gain;
    return group;
}

// Both roots of s^2 + c1 s + c0 with real coefficients; a discriminant within 2^-23 counts as zero.
std::array<Complex, 2> quadraticRoots(double c1, double c0) {
    double discriminant = c1 * c1 - 4.0 * c0;
    if (std::fabs(discriminant) < 0x1p-23)
        discriminant = 0.0;
    const Complex root = std::sqrt(Complex(discriminant, 0.0));
    return {0.5 * (-c1 + root), 0.5 * (-c1 - root)};
}

// Rise in dB of |P(j x)|^2 from x = 4 to x = 16, two to four octaves past the corner, for
// P(s) = s^2 + c1 s + c0 (second order) or s + c0 (first order).
double riseOverWindow(int32_t degree, double c1, double c0) {
    auto power = [&](double x) {
        if (degree == 1)
            return c0 * c0 + x * x;
        return (c0 - x * x) * (c0 - x * x) + c1 * c1 * x * x;
    };
    return 10.0 * std::log10(power(16.0) / power(4.0));
}

// Pole pair of the fractional last group of an even-order design, blended in log2 between the
// reduced order (real poles at -1/a0 and -1) and the full order (Butterworth pair scaled by 1/a1).
struct BlendedPair {
    double c1, c0;
};

BlendedPair blendedPair(int32_t fullOrder, double w, double reducedRoot, double fullRoot) {
    const double damping = std::sin((fullOrder - 1) * kPi / (2.0 * fullOrder));
    const double reducedC1 = 1.0 + 1.0 / reducedRoot, reducedC0 = 1.0 / reducedRoot;
    const double fullC1 = 2.0 * damping / fullRoot, fullC0 = 1.0 / (fullRoot * fullRoot);
    return {std::exp2((1.0 - w) * std::log2(reducedC1) + w * std::log2(fullC1)),
            std::exp2((1.0 - w) * std::log2(reducedC0) + w * std::log2(fullC0))};
}

// The fractional last group of a cut of order (N - 1) + w: poles continuous in w, and a zero
// 1/u placed so that the two to four octaves past the corner fall at exactly 6 order dB/oct. The
// blend of the residual error keeps u = 1 (the zero cancels a pole) at w = 0 and u = 0 at w = 1.
PoleZeroGroup fractionalCutGroup(int32_t fullOrder, double w) {
    const bool even = fullOrder % 2 == 0;
    const double baseOrder = even ? 1.0 : 0.0; // orders the last group keeps at w = 0
    const double windowRisePerOrder = 2.0 * kDbPerOctavePerOrder;
    const double singlePoleRise = riseOverWindow(1, 0.0, 1.0);
    auto poleRise = [&](double at) {
        if (!even)
            return singlePoleRise;
        const BlendedPair pair = blendedPair(fullOrder, at, 1.0, 1.0);
        return riseOverWindow(2, pair.c1, pair.c0);
    };
    const double errorAtReduced = poleRise(0.0) - windowRisePerOrder * baseOrder - singlePoleRise;
    const double errorAtFull = poleRise(1.0) - windowRisePerOrder * (baseOrder + 1.0);
    const double zeroRise = std::clamp(poleRise(w) - windowRisePerOrder * (baseOrder + w) -
                                           (1.0 - w) * errorAtReduced - w * errorAtFull,
                                       0.0, singlePoleRise);
    const double ratio = std::pow(10.0, zeroRise / 10.0);
    const double u = std::sqrt((ratio - 1.0) / (256.0 - 16.0 * ratio));

    PoleZeroGroup group;
    double denominatorConstant = 1.0;
    if (even) {
        const BlendedPair pair = blendedPair(fullOrder, w, 1.0, 1.0);
        const auto poles = quadraticRoots(pair.c1, pair.c0);
        group.numPoles = 2;
        group.poles = {poles[0], poles[1]};
        group.zeros[1] = kInfinity;
        denominatorConstant = pair.c0;
    } else {
        group.numPoles = 1;
        group.poles[0] = -1.0;
    }
    // (1 + u s) / D(s) normalised to unity at DC.
    if (u > 1e-12) {
        group.zeros[0] = -1.0 / u;
        group.gain = u * denominatorConstant;
    } else {
        group.zeros[0] = kInfinity;
        group.gain = denominatorConstant;
    }
    return group;
}

// The fractional last group of a shelf: first order with its share w / order of the ratio for
// odd N; for even N a blended pole pair whose zeros are re-solved so that the group's gain at the
// corner stays the square root of its DC gain.
PoleZeroGroup fractionalShelfGroup(int32_t fullOrder, double order, double w, double ratio) {
    if (fullOrder % 2 == 1) {
        const double a = std::pow(ratio, w / (2.0 * order));
        return realGroup(-1.0 / a, -a, 1.0);
    }
    const double reducedRoot = std::pow(ratio, 1.0 / (2.0 * (fullOrder - 1)));
    const double fullRoot = std::pow(ratio, 1.0 / (2.0 * fullOrder));
    const BlendedPair pair = blendedPair(fullOrder, w, reducedRoot, fullRoot);
    const double groupRatio = std::pow(ratio, (1.0 + w) / order);
    const double zeroC0 = groupRatio * pair.c0;
    double zeroC1Squared = groupRatio * ((pair.c0 - 1.0) * (pair.c0 - 1.0) + pair.c1 * pair.c1) -
                           (zeroC0 - 1.0) * (zeroC0 - 1.0);
    if (zeroC1Squared < 0x1p-23)
        zeroC1Squared = 0.0;
    const auto poles = quadraticRoots(pair.c1, pair.c0);
    const auto zeros = quadraticRoots(std::sqrt(zeroC1Squared), zeroC0);
    PoleZeroGroup group;
    group.numPoles = 2;
    group.poles = {poles[0], poles[1]};
    group.zeros = {zeros[0], zeros[1]};
    return group;
}

// Roots of x^2 - value bandwidth x + 1: the two images of value under the band transform.
std::array<Complex, 2> bandImages(Complex value, double bandwidth) {
    const Complex sum = value * bandwidth;
    const Complex root = std::sqrt(sum * sum - 4.0);
    return {0.5 * (sum + root), 0.5 * (sum - root)};
}

// Maps two poles (or zeros) to four so that each consecutive pair forms a real section.
void bandImagesOfPair(const Complex* values, int32_t count, double bandwidth, Complex* out) {
    const auto first = bandImages(values[0], bandwidth);
    if (count == 1) {
        out[0] = first[0];
        out[1] = first[1];
        return;
    }
    if (values[0].imag() != 0.0 && values[1] == std::conj(values[0])) {
        out[0] = first[0];
        out[1] = std::conj(first[0]);
        out[2] = first[1];
        out[3] = std::conj(first[1]);
        return;
    }
    const auto second = bandImages(values[1], bandwidth);
    out[0] = first[0];
    out[1] = first[1];
    out[2] = second[0];
    out[3] = second[1];
}

} // namespace

void butterworth(double order, std::optional<double> shelfRatio, PoleZeroGroupList& groups) {
    const double r = std::clamp(order, 1.0, 16.0);
    const int32_t fullOrder = static_cast<int32_t>(std::ceil(r));
    const int32_t numPairs = (fullOrder + 1) / 2;
    const bool fractional = r < fullOrder;
    const int32_t regularPairs = fractional ? numPairs - 1 : numPairs;
    // Each pole carries an equal share of the shelf ratio: 1/r of it in dB.
    const double poleRoot = shelfRatio ? std::pow(*shelfRatio, 1.0 / (2.0 * r)) : 1.0;
    for (int32_t k = 0; k < regularPairs; ++k) {
        if (!fractional && fullOrder % 2 == 1 && k == numPairs - 1) {
            groups.add(shelfRatio ? realGroup(-1.0 / poleRoot, -poleRoot, 1.0)
                                  : realGroup(-1.0, kInfinity, 1.0));
            continue;
        }
        const double theta = (2 * k + 1) * kPi / (2.0 * r);
        const Complex pole(-std::sin(theta), std::cos(theta));
        groups.add(shelfRatio ? pairGroup(pole / poleRoot, pole * poleRoot, 1.0)
                              : pairGroup(pole, kInfinity, std::norm(pole)));
    }
    if (fractional) {
        const double w = r - (fullOrder - 1);
        groups.add(shelfRatio ? fractionalShelfGroup(fullOrder, r, w, *shelfRatio)
                              : fractionalCutGroup(fullOrder, w));
    }
}

void staircase(double order, PoleZeroGroupList& groups) {
    const double d = std::pow(10.0, -15.0 * std::max(order, 0.0) / 20.0);
    for (int32_t i = 0; i < 3; ++i) {
        const double reference = std::exp2(5.0 * i);
        PoleZeroGroup group;
        group.numPoles = 2;
        group.poles = {-reference, -reference * std::exp2(2.5)};
        group.zeros = {group.poles[0] / d, group.poles[1] / d};
        group.gain = d * d;
        group.reference = {reference, reference};
        groups.add(group);
    }
}

void flatTilt(double linearGain, PoleZeroGroupList& groups) {
    const double d = std::pow(linearGain, 0.25);
    for (int32_t i = 0; i < 3; ++i) {
        const double centre = 5.0 * (i - 1); // log2 of the group's centre
        const double lower = std::exp2(centre - 1.25), upper = std::exp2(centre + 1.25);
        PoleZeroGroup group;
        group.numPoles = 2;
        group.poles = {-lower * d, -upper * d};
        group.zeros = {-lower / d, -upper / d};
        group.gain = d * d;
        group.reference = {std::exp2(centre), lower};
        groups.add(group);
    }
}

void chebyshevI(int32_t order, PoleZeroGroupList& groups) {
    constexpr double kEpsilon = 0.4205017685890198;
    if (order < 1)
        return;
    const double a = std::asinh(1.0 / kEpsilon) / order;
    const double totalGain = std::pow(10.0, kButterworthDamping / 20.0) / (std::exp2(order - 1) * kEpsilon);
    for (int32_t k = 0; k < (order + 1) / 2; ++k) {
        if (order % 2 == 1 && k == order / 2) {
            groups.add(realGroup(-std::sinh(a), kInfinity, std::pow(totalGain, 1.0 / order)));
            continue;
        }
        const double theta = (2 * k + 1) * kPi / (2.0 * order);
        const Complex pole(-std::sinh(a) * std::sin(theta), std::cosh(a) * std::cos(theta));
        groups.add(pairGroup(pole, kInfinity, std::pow(totalGain, 2.0 / order)));
    }
}

void chebyshevII(int32_t order, PoleZeroGroupList& groups) {
    constexpr double kEpsilon = 0.001;
    if (order < 1)
        return;
    const double a = std::asinh(1.0 / kEpsilon) / order;
    for (int32_t k = 0; k < (order + 1) / 2; ++k) {
        if (order % 2 == 1 && k == order / 2) {
            const double pole = -1.0 / std::sinh(a);
            groups.add(realGroup(pole, kInfinity, -pole));
            continue;
        }
        const double theta = (2 * k + 1) * kPi / (2.0 * order);
        const Complex pole = 1.0 / Complex(-std::sinh(a) * std::sin(theta), std::cosh(a) * std::cos(theta));
        const Complex zero(0.0, 1.0 / std::cos(theta));
        groups.add(pairGroup(pole, zero, std::norm(pole) / std::norm(zero)));
    }
}

void elliptic(int32_t order, PoleZeroGroupList& groups) {
    if (order < 1)
        return;
    const double passRipple = 1.0 - std::pow(10.0, -0.1 / 20.0);
    const double stopLevel = std::pow(10.0, -90.0 / 20.0);
    const double epsilon = std::sqrt((2.0 * passRipple - passRipple * passRipple) /
                                     (1.0 - 2.0 * passRipple + passRipple * passRipple));
    const double k1 = epsilon / std::sqrt(1.0 / (stopLevel * stopLevel) - 1.0);
    const double k = elliptic::selectivity(order, k1);
    const double kComplement = elliptic::complementaryModulus(k);
    const double quarterPeriod = elliptic::completeIntegral(k);
    // nu0 = K(k) / (N K(k1)) sc^-1(1/epsilon, k1'); sc^-1(x) = F(atan x).
    const double v0 =
        quarterPeriod / (order * elliptic::completeIntegral(k1)) *
        elliptic::incompleteIntegral(std::atan(1.0 / epsilon), elliptic::complementaryModulus(k1));
    const elliptic::JacobiValues at0 = elliptic::jacobi(v0, kComplement);
    for (int32_t i = 1; i <= order / 2; ++i) {
        const double u = (2 * i - (order % 2 == 0 ? 1 : 0)) * quarterPeriod / order;
        const elliptic::JacobiValues at = elliptic::jacobi(u, k);
        const double denominator = 1.0 - at.dn * at.dn * at0.sn * at0.sn;
        const Complex pole(-at.cn * at.dn * at0.sn * at0.cn / denominator, at.sn * at0.dn / denominator);
        const Complex zero(0.0, 1.0 / (k * at.sn));
        groups.add(pairGroup(pole, zero, std::norm(pole) / std::norm(zero)));
    }
    if (order % 2 == 1) {
        const double pole = -at0.sn / at0.cn;
        groups.add(realGroup(pole, kInfinity, -pole));
    }
}

PoleZeroGroup bandTransform(const PoleZeroGroup& group, double bandwidth) {
    PoleZeroGroup result;
    const int32_t count = std::min(group.numPoles, 2);
    result.numPoles = 2 * count;
    bandImagesOfPair(group.poles.data(), count, bandwidth, result.poles.data());
    int32_t finiteZeros = 0;
    for (int32_t i = 0; i < count; ++i)
        finiteZeros += isInfinite(group.zeros[static_cast<size_t>(i)]) ? 0 : 1;
    if (finiteZeros == count) {
        bandImagesOfPair(group.zeros.data(), count, bandwidth, result.zeros.data());
    } else {
        // Each zero keeps its own pair of images; one at infinity maps to 0 and infinity.
        for (int32_t i = 0; i < count; ++i) {
            const auto index = static_cast<size_t>(i);
            const std::array<Complex, 2> images = isInfinite(group.zeros[index])
                                                      ? std::array<Complex, 2>{Complex(0.0, 0.0), kInfinity}
                                                      : bandImages(group.zeros[index], bandwidth);
            result.zeros[2 * index] = images[0];
            result.zeros[2 * index + 1] = images[1];
        }
    }
    // (s^2 + 1)/(s B) - r = (s^2 - r B s + 1)/(s B): every pole without a finite zero leaves a factor B.
    result.gain = group.gain * std::pow(bandwidth, count - finiteZeros);
    return result;
}

PoleZeroGroup highPassTransform(const PoleZeroGroup& group) {
    // 1/s - r = -r (s - 1/r) / s: each finite, non-zero root contributes -r to the gain.
    PoleZeroGroup result = group;
    Complex gain = group.gain;
    for (int32_t i = 0; i < group.numPoles; ++i) {
        const auto index = static_cast<size_t>(i);
        const Complex pole = group.poles[index];
        const Complex zero = group.zeros[index];
        result.poles[index] = 1.0 / pole;
        gain /= -pole;
        if (isInfinite(zero)) {
            result.zeros[index] = 0.0;
        } else if (zero == Complex(0.0, 0.0)) {
            result.zeros[index] = kInfinity;
        } else {
            result.zeros[index] = 1.0 / zero;
            gain *= -zero;
        }
    }
    result.gain = gain.real();
    result.reference = {1.0 / group.reference[0], 1.0 / group.reference[1]};
    return result;
}

PoleZeroGroup allPass(const PoleZeroGroup& group) {
    PoleZeroGroup result = group;
    for (int32_t i = 0; i < group.numPoles; ++i) {
        const auto index = static_cast<size_t>(i);
        result.zeros[index] = Complex(-group.poles[index].real(), group.poles[index].imag());
    }
    result.gain = 1.0;
    return result;
}

PoleZeroGroup centred(const PoleZeroGroup& group) {
    Complex dcGain = group.gain;
    for (int32_t i = 0; i < group.numPoles; ++i) {
        const auto index = static_cast<size_t>(i);
        dcGain *= -group.zeros[index] / -group.poles[index];
    }
    PoleZeroGroup result = group;
    result.gain /= std::sqrt(std::abs(dcGain));
    return result;
}

} // namespace pole_zero
