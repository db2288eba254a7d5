#include "eq/AnalogFilterPrototype.h"

#include "eq/PoleZeroDesign.h"
#include "foundation/Numbers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

using Complex = std::complex<double>;

const Complex kInfinity(std::numeric_limits<double>::infinity(), 0.0);

double finiteOr(double value, double fallback) {
    return std::isfinite(value) ? value : fallback;
}

// Real polynomial coefficients (c2, c1, c0) of the monic product over the finite roots.
std::array<double, 3> polynomialFromRoots(const Complex* roots, double normalisation, int32_t& degree) {
    std::array<Complex, 2> finite{};
    degree = 0;
    for (int32_t i = 0; i < 2; ++i)
        if (!std::isinf(roots[i].real()))
            finite[static_cast<size_t>(degree++)] = roots[i] / normalisation;
    if (degree == 0)
        return {0.0, 0.0, 1.0};
    if (degree == 1)
        return {0.0, 1.0, -finite[0].real()};
    return {1.0, -(finite[0] + finite[1]).real(), (finite[0] * finite[1]).real()};
}

// Keeps the sign of a (possibly negative) factor on the first of n equal parts.
double rootOfFactor(double factor, int32_t parts, int32_t index) {
    const double part = std::pow(std::fabs(factor), 1.0 / parts);
    return index == 0 && factor < 0.0 ? -part : part;
}

} // namespace

AnalogFilterPrototype::AnalogFilterPrototype(float newOrder, float newQ, float gain, DesignFamily newFamily,
                                             Shape newShape) {
    set(newOrder, newQ, gain, newFamily, newShape);
}

Complex AnalogFilterPrototype::response(double frequency) const {
    Complex product = 1.0;
    for (int32_t i = 0; i < numSections; ++i)
        product *= sections[static_cast<size_t>(i)].response(frequency); // recovers from NaN * inf
    return product;
}

double AnalogFilterPrototype::squaredMagnitude(double frequency) const {
    double product = 1.0;
    for (int32_t i = 0; i < numSections; ++i)
        product *= sections[static_cast<size_t>(i)].squaredMagnitude(frequency);
    return product;
}

void AnalogFilterPrototype::squaredMagnitudes(const float* frequencies, float* out, int32_t count) const {
    constexpr int32_t kChunk = 64;
    std::fill(out, out + count, 1.0f);
    std::array<float, kChunk> section{};
    for (int32_t start = 0; start < count; start += kChunk) {
        const int32_t length = std::min(kChunk, count - start);
        for (int32_t i = 0; i < numSections; ++i) {
            sections[static_cast<size_t>(i)].squaredMagnitudes(frequencies + start, section.data(), length);
            for (int32_t j = 0; j < length; ++j)
                out[start + j] = std::fmax(out[start + j] * section[static_cast<size_t>(j)], 0.0f);
        }
    }
}

void AnalogFilterPrototype::phases(const float* frequencies, float* out, int32_t count) const {
    constexpr float kPi = std::numbers::pi_v<float>;
    std::fill(out, out + count, 0.0f);
    for (int32_t i = 0; i < numSections; ++i)
        sections[static_cast<size_t>(i)].accumulatePhases(frequencies, out, count);
    for (int32_t j = 0; j < count; ++j) {
        const float value = out[j];
        if (std::fabs(std::fabs(value) - kPi) <= static_cast<float>(kDesignEpsilon))
            continue;
        const float shift = std::copysign(kPi, value);
        out[j] = std::fmod(value + shift, 2.0f * kPi) - shift;
    }
}

void AnalogFilterPrototype::setFrequency(double frequency, double inverseFrequency) {
    AnalogFilterPrototypeBase::setFrequency(frequency, inverseFrequency);
    for (int32_t i = 0; i < numSections; ++i) {
        auto& section = sections[static_cast<size_t>(i)];
        const double relative = section.getRelativeReference();
        section.setFrequency(referenceFrequency * relative, frequencyScale / relative);
    }
}

int32_t AnalogFilterPrototype::set(float newOrder, float newQ, float gain, DesignFamily newFamily,
                                   Shape newShape) {
    family = newFamily;
    shape = newShape;
    q = static_cast<float>(std::clamp(finiteOr(newQ, kButterworthDamping), 0.01, 100.0));
    linearGain = static_cast<float>(std::clamp(finiteOr(gain, 1.0), 1e-6, 1e6));
    double r = std::clamp(finiteOr(newOrder, 0.0), 0.0, 16.0);
    if (family != DesignFamily::Butterworth)
        r = roundToInt(r);
    const bool bandShape = isBandShape(shape);
    if (bandShape && shape != Shape::BandPass)
        r = std::max(r, 2.0);
    order = static_cast<float>(r);

    designGroups(bandShape ? r / 2.0 : r);
    buildSections();

    // Below second order the user's damping fades toward Butterworth.
    double sectionQ = q;
    if (shape == Shape::FlatTilt || (r < 1.0 && allowsZeroOrder(shape)))
        sectionQ = kButterworthDamping;
    else if (r < 2.0 && !bandShape)
        sectionQ = (q - kButterworthDamping) * std::max(0.0, r - 1.0) + kButterworthDamping;
    if (!bandShape)
        applyUserQ(sectionQ);
    if (shape == Shape::ScaledBandPass)
        scaleNumerators(q * std::numbers::sqrt2);
    setFrequency(referenceFrequency, frequencyScale);
    return numSections;
}

void AnalogFilterPrototype::designGroups(double lowPassOrder) {
    groups.count = 0;
    if (shape == Shape::FlatTilt) {
        pole_zero::flatTilt(linearGain, groups);
    } else if (family == DesignFamily::Butterworth && lowPassOrder < 1.0 && allowsZeroOrder(shape)) {
        pole_zero::staircase(lowPassOrder, groups);
    } else {
        const int32_t roundedOrder = roundToInt(lowPassOrder);
        switch (family) {
        case DesignFamily::Butterworth:
            pole_zero::butterworth(lowPassOrder,
                                   hasGain(shape) ? std::optional<double>(linearGain) : std::nullopt, groups);
            break;
        case DesignFamily::ChebyshevI:
            pole_zero::chebyshevI(roundedOrder, groups);
            break;
        case DesignFamily::ChebyshevII:
            pole_zero::chebyshevII(roundedOrder, groups);
            break;
        case DesignFamily::Elliptic:
            pole_zero::elliptic(roundedOrder, groups);
            break;
        }
    }

    const double bandwidth = 1.0 / q;
    for (int32_t i = 0; i < groups.count; ++i) {
        auto& group = groups.items[static_cast<size_t>(i)];
        if (shape == Shape::AllPass)
            group = pole_zero::allPass(group);
        if (shape == Shape::TiltShelf)
            group = pole_zero::centred(group);
        // A notch is the band image of a high-pass: its zeros at DC land on the centre frequency.
        if (shape == Shape::Notch)
            group = pole_zero::bandTransform(pole_zero::highPassTransform(group), bandwidth);
        else if (isBandShape(shape))
            group = pole_zero::bandTransform(group, bandwidth);
        else if (needsHighPassTransform(shape))
            group = pole_zero::highPassTransform(group);
    }
}

void AnalogFilterPrototype::buildSections() {
    numSections = 0;
    for (int32_t g = 0; g < groups.count; ++g) {
        const auto& group = groups.items[static_cast<size_t>(g)];
        const int32_t groupSections = (group.numPoles + 1) / 2;
        const double normalisation = group.reference[0];
        for (int32_t j = 0; j < groupSections && numSections < kMaximumSections; ++j) {
            int32_t numeratorDegree = 0;
            int32_t denominatorDegree = 0;
            const auto* poles = group.poles.data() + 2 * j;
            const auto* zeros = group.zeros.data() + 2 * j;
            std::array<Complex, 2> sectionPoles{poles[0], group.numPoles == 1 ? kInfinity : poles[1]};
            std::array<Complex, 2> sectionZeros{zeros[0], group.numPoles == 1 ? kInfinity : zeros[1]};
            const auto b = polynomialFromRoots(sectionZeros.data(), normalisation, numeratorDegree);
            const auto a = polynomialFromRoots(sectionPoles.data(), normalisation, denominatorDegree);
            // Normalising s by the reference scales the monic product by reference^(zeros - poles).
            const double gain = rootOfFactor(group.gain, groupSections, j) *
                                std::pow(normalisation, numeratorDegree - denominatorDegree);
            auto& section = sections[static_cast<size_t>(numSections++)];
            section.setCoefficients({b[0] * gain, b[1] * gain, b[2] * gain, a[0], a[1], a[2]});
            section.setRelativeReference(normalisation);
            section.setGroupIndex(group.numPoles == 4 ? j : -1);
            section.setDamping(a[0] != 0.0 ? a[1] / (2.0 * std::sqrt(a[0] * a[2])) : kButterworthDamping);
        }
    }
}

void AnalogFilterPrototype::applyUserQ(double sectionQ) {
    if (numSections == 0 || sections[0].order() != 2)
        return;
    auto& section = sections[0];
    const double factor = kButterworthDamping / sectionQ;
    auto scaled = [factor](double value) {
        return value == 0.0 ? 0.0
                            : std::copysign(std::max(std::fabs(value) * factor, kMinimumDamping), value);
    };
    AnalogSectionCoefficients c = section.getCoefficients();
    // With a zero at 0 or at infinity the numerator has no pair to damp; its b1 places the other
    // zero (the fractional-order construction) and is left alone.
    if (std::fabs(c.b2) > kDesignEpsilon && std::fabs(c.b0) > kDesignEpsilon)
        c.b1 = scaled(c.b1);
    c.a1 = scaled(c.a1);
    section.setCoefficients(c);
    section.setDamping(std::max(section.getDamping() * factor, kMinimumDamping));
}

void AnalogFilterPrototype::polesAndZeros(std::vector<Complex>& poles, std::vector<Complex>& zeros) const {
    poles.clear();
    zeros.clear();
    for (int32_t i = 0; i < numSections; ++i) {
        const auto& section = sections[static_cast<size_t>(i)];
        std::array<Complex, 2> sectionPoles{};
        std::array<Complex, 2> sectionZeros{};
        const int32_t sectionOrder = section.roots(sectionPoles, sectionZeros);
        for (int32_t j = 0; j < sectionOrder; ++j) {
            poles.push_back(sectionPoles[static_cast<size_t>(j)] * section.getRelativeReference());
            zeros.push_back(sectionZeros[static_cast<size_t>(j)] * section.getRelativeReference());
        }
    }
}

void AnalogFilterPrototype::scaleNumerators(double factor) {
    for (int32_t i = 0; i < numSections; ++i)
        sections[static_cast<size_t>(i)].scaleNumerator(rootOfFactor(factor, numSections, i));
}

void AnalogFilterPrototype::toDigital(double k, DigitalForm form, DigitalSectionCoefficients* out) const {
    for (int32_t i = 0; i < numSections; ++i) {
        const auto& section = sections[static_cast<size_t>(i)];
        out[i] = section.toDigital(k * section.getRelativeReference(), form);
    }
}

void AnalogFilterPrototype::dropNegligibleLowSections(double minimumFrequency) {
    if (shape != Shape::LowCut || order >= 1.0f)
        return;
    for (int32_t i = 1; i < numSections; ++i) {
        auto& section = sections[static_cast<size_t>(i)];
        if (section.getRelativeReference() * referenceFrequency < minimumFrequency) {
            section.setIdentity();
            section.setFrequency(referenceFrequency, frequencyScale);
        }
    }
}
