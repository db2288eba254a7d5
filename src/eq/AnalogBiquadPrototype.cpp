#include "eq/AnalogBiquadPrototype.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kMinimumFrequency = 1e-6;
constexpr double kMaximumFrequency = 1e6;

double clampFrequency(double value) {
    if (!(value >= kMinimumFrequency)) // also catches NaN
        return kMinimumFrequency;
    return std::min(value, kMaximumFrequency);
}

bool isZero(double value) {
    return std::fabs(value) <= kDesignEpsilon;
}

// Arctangent in single precision, reduced at tan(3 pi/8) and tan(pi/8); about 1e-7 rad.
float fastAtan(float x) {
    constexpr float kHalfPi = 1.5707963267948966f;
    constexpr float kQuarterPi = 0.7853981633974483f;
    const float sign = x < 0.0f ? -1.0f : 1.0f;
    x *= sign;
    float offset = 0.0f;
    if (x > 2.4142137f) {
        offset = kHalfPi;
        x = -1.0f / x;
    } else if (x > 0.41421357f) {
        offset = kQuarterPi;
        x = (x - 1.0f) / (x + 1.0f);
    }
    const float z = x * x;
    const float poly =
        (((8.05374449538e-2f * z - 1.38776856032e-1f) * z + 1.99777106478e-1f) * z - 3.33329491539e-1f) * z *
            x +
        x;
    return sign * (offset + poly);
}

float fastAtan2(float y, float x) {
    constexpr float kPi = 3.14159265358979f;
    if (x == 0.0f)
        return y > 0.0f ? kPi / 2 : (y < 0.0f ? -kPi / 2 : 0.0f);
    const float angle = fastAtan(y / x);
    if (x > 0.0f)
        return angle;
    return y >= 0.0f ? angle + kPi : angle - kPi;
}

// Roots of c2 s^2 + c1 s + c0, degree decided by the design epsilon.
int32_t quadraticRoots(double c2, double c1, double c0, std::array<std::complex<double>, 2>& roots) {
    const std::complex<double> infinity(std::numeric_limits<double>::infinity(), 0.0);
    roots = {infinity, infinity};
    if (isZero(c2)) {
        if (c1 != 0.0)
            roots[0] = -c0 / c1;
        return 1;
    }
    const std::complex<double> root = std::sqrt(std::complex<double>(c1 * c1 - 4.0 * c2 * c0, 0.0));
    roots[0] = (-c1 + root) / (2.0 * c2);
    roots[1] = (-c1 - root) / (2.0 * c2);
    return 2;
}

} // namespace

double AnalogFilterPrototypeBase::squaredMagnitude(double frequency) const {
    return std::norm(response(frequency));
}

void AnalogFilterPrototypeBase::squaredMagnitudes(const float* frequencies, float* out, int32_t count) const {
    for (int32_t i = 0; i < count; ++i)
        out[i] = static_cast<float>(squaredMagnitude(frequencies[i]));
}

void AnalogFilterPrototypeBase::phases(const float* frequencies, float* out, int32_t count) const {
    for (int32_t i = 0; i < count; ++i)
        out[i] = static_cast<float>(std::arg(response(frequencies[i])));
}

void AnalogFilterPrototypeBase::setFrequency(double frequency, double inverseFrequency) {
    referenceFrequency = clampFrequency(frequency);
    frequencyScale = clampFrequency(inverseFrequency);
}

std::complex<double> AnalogBiquadPrototype::response(double frequency) const {
    const double x = frequency * frequencyScale;
    const auto& c = coefficients;
    const std::complex<double> numerator(c.b0 - c.b2 * x * x, c.b1 * x);
    const std::complex<double> denominator(c.a0 - c.a2 * x * x, c.a1 * x);
    return numerator / denominator;
}

void AnalogBiquadPrototype::updatePowerPolynomials() const {
    if (cacheValid)
        return;
    const auto& c = coefficients;
    const double s2 = frequencyScale * frequencyScale;
    power = {c.b2 * c.b2 * s2 * s2, (c.b1 * c.b1 - 2.0 * c.b2 * c.b0) * s2, c.b0 * c.b0,
             c.a2 * c.a2 * s2 * s2, (c.a1 * c.a1 - 2.0 * c.a2 * c.a0) * s2, c.a0 * c.a0};
    cacheValid = true;
}

double AnalogBiquadPrototype::squaredMagnitude(double frequency) const {
    updatePowerPolynomials();
    const double f2 = frequency * frequency;
    const double value =
        ((power[0] * f2 + power[1]) * f2 + power[2]) / ((power[3] * f2 + power[4]) * f2 + power[5]);
    return std::fmax(value, 0.0);
}

void AnalogBiquadPrototype::squaredMagnitudes(const float* frequencies, float* out, int32_t count) const {
    updatePowerPolynomials();
    std::array<float, 6> p;
    std::transform(power.begin(), power.end(), p.begin(), [](double v) { return static_cast<float>(v); });
    for (int32_t i = 0; i < count; ++i) {
        const float f2 = frequencies[i] * frequencies[i];
        const float value = ((p[0] * f2 + p[1]) * f2 + p[2]) / ((p[3] * f2 + p[4]) * f2 + p[5]);
        out[i] = std::fmax(value, 0.0f);
    }
}

void AnalogBiquadPrototype::phases(const float* frequencies, float* out, int32_t count) const {
    std::fill(out, out + count, 0.0f);
    accumulatePhases(frequencies, out, count);
}

void AnalogBiquadPrototype::accumulatePhases(const float* frequencies, float* phases, int32_t count) const {
    const auto& c = coefficients;
    const float scale = static_cast<float>(frequencyScale);
    const float b2 = static_cast<float>(c.b2), b1 = static_cast<float>(c.b1), b0 = static_cast<float>(c.b0);
    const float a2 = static_cast<float>(c.a2), a1 = static_cast<float>(c.a1), a0 = static_cast<float>(c.a0);
    for (int32_t i = 0; i < count; ++i) {
        const float x = frequencies[i] * scale;
        const float numerator = fastAtan2(b1 * x, b0 - b2 * x * x);
        const float denominator = fastAtan2(a1 * x, a0 - a2 * x * x);
        phases[i] += numerator - denominator;
    }
}

void AnalogBiquadPrototype::setFrequency(double frequency, double inverseFrequency) {
    AnalogFilterPrototypeBase::setFrequency(frequency, inverseFrequency);
    cacheValid = false;
}

void AnalogBiquadPrototype::setCoefficients(const AnalogSectionCoefficients& newCoefficients) {
    coefficients = newCoefficients;
    cacheValid = false;
}

void AnalogBiquadPrototype::scaleNumerator(double factor) {
    coefficients.b2 *= factor;
    coefficients.b1 *= factor;
    coefficients.b0 *= factor;
    cacheValid = false;
}

void AnalogBiquadPrototype::setIdentity() {
    // (s + 1)^2 / (s + 1)^2: unlike (s^2 + 1) / (s^2 + 1) it has no 0/0 at the reference frequency.
    setCoefficients({1.0, 2.0, 1.0, 1.0, 2.0, 1.0});
    groupIndex = -1;
    relativeReference = 1.0;
}

int32_t AnalogBiquadPrototype::order() const {
    return isZero(coefficients.b2) && isZero(coefficients.a2) ? 1 : 2;
}

int32_t AnalogBiquadPrototype::roots(std::array<std::complex<double>, 2>& poles,
                                     std::array<std::complex<double>, 2>& zeros) const {
    const auto& c = coefficients;
    quadraticRoots(c.b2, c.b1, c.b0, zeros);
    quadraticRoots(c.a2, c.a1, c.a0, poles);
    return order();
}

DigitalSectionCoefficients AnalogBiquadPrototype::toDigital(double k, DigitalForm form) const {
    const auto& c = coefficients;
    const double k2 = k * k;
    if (form == DigitalForm::DirectForm) {
        if (order() == 1) {
            const double d = c.a1 + c.a0 * k;
            return {(c.b1 + c.b0 * k) / d, (c.b0 * k - c.b1) / d, 0.0, (c.a0 * k - c.a1) / d, 0.0};
        }
        const double d = c.a2 + c.a1 * k + c.a0 * k2;
        return {(c.b2 + c.b1 * k + c.b0 * k2) / d, 2.0 * (c.b0 * k2 - c.b2) / d,
                (c.b2 - c.b1 * k + c.b0 * k2) / d, 2.0 * (c.a0 * k2 - c.a2) / d,
                (c.a2 - c.a1 * k + c.a0 * k2) / d};
    }
    if (order() == 1) {
        // Realised as a second-order state-variable section with a pole-zero pair cancelling at z = 0.
        const double m = k * c.a0;
        const double r = 1.0 / (std::sqrt(m) * std::sqrt(c.a1));
        const double g = std::sqrt(m) / std::sqrt(c.a1);
        return {g, (m + c.a1) * r + g, c.b0 / c.a0, (k * c.b0 + c.b1) * r, c.b1 / c.a1};
    }
    const double r = 1.0 / (std::sqrt(c.a2) * std::sqrt(c.a0));
    const double g = k * c.a0 * r;
    return {g, c.a1 * r + g, c.b0 / c.a0, c.b1 * r, c.b2 / c.a2};
}
