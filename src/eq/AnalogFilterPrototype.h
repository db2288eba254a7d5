#pragma once

#include "eq/AnalogBiquadPrototype.h"
#include "plugin/eq/FilterShape.h"

#include <array>
#include <complex>
#include <cstdint>
#include <vector>

// Design families of AnalogFilterPrototype::set.
enum class DesignFamily : int32_t { Butterworth = 0, ChebyshevI = 1, ChebyshevII = 2, Elliptic = 3 };

// Intermediate design record: up to four poles and zeros (a zero at infinity is +inf), a gain and
// the normalisation frequencies of the sections built from the group.
struct PoleZeroGroup {
    std::array<std::complex<double>, 4> poles{};
    std::array<std::complex<double>, 4> zeros{};
    int32_t numPoles = 0;
    double gain = 1.0;
    std::array<double, 2> reference{1.0, 1.0};
};

// The groups of one design (fixed capacity: a prototype never has more than eight sections).
struct PoleZeroGroupList {
    std::array<PoleZeroGroup, 8> items{};
    int32_t count = 0;

    void add(const PoleZeroGroup& group) {
        if (count < static_cast<int32_t>(items.size()))
            items[static_cast<size_t>(count++)] = group;
    }
};

// A band's analog design: a cascade of at most eight s-domain sections, the single description
// from which the biquads, the display curves and the phase kernels are derived. A plain value:
// every owner designs its own, nothing is allocated while designing.
class AnalogFilterPrototype : public AnalogFilterPrototypeBase {
public:
    using Shape = FilterShape;
    using BiquadPrototype = AnalogBiquadPrototype;
    using AnalogFilterPrototypeBase::setFrequency;

    static constexpr int32_t kMaximumSections = 8;

    AnalogFilterPrototype() = default;
    AnalogFilterPrototype(float order, float q, float gain, DesignFamily family, Shape shape);

    std::complex<double> response(double frequency) const override;
    double squaredMagnitude(double frequency) const override;
    void squaredMagnitudes(const float* frequencies, float* out, int32_t count) const override;
    void phases(const float* frequencies, float* out, int32_t count) const override;
    void setFrequency(double frequency, double inverseFrequency) override;

    // Designs the cascade; returns the number of sections. gain is linear.
    int32_t set(float order, float q, float gain, DesignFamily family, Shape shape);
    int32_t setGain(float newGain) { return set(order, q, newGain, family, shape); }
    int32_t setQ(float newQ) { return set(order, newQ, linearGain, family, shape); }

    int32_t getNumSections() const { return numSections; }
    const BiquadPrototype& getSection(int32_t index) const { return sections[static_cast<size_t>(index)]; }
    int32_t getNumGroups() const { return groups.count; }
    const PoleZeroGroup& getGroup(int32_t index) const { return groups.items[static_cast<size_t>(index)]; }
    float getOrder() const { return order; }
    float getQ() const { return q; }
    float getGain() const { return linearGain; }
    DesignFamily getFamily() const { return family; }
    Shape getShape() const { return shape; }

    // Roots of all active sections relative to the filter frequency; zeros at infinity are +inf.
    void polesAndZeros(std::vector<std::complex<double>>& poles,
                       std::vector<std::complex<double>>& zeros) const;
    // Multiplies the whole cascade by factor, spread evenly over the sections.
    void scaleNumerators(double factor);
    // Exact bilinear transform of the cascade, pre-warped at the filter frequency: k = tan(pi f0 / fs).
    void toDigital(double k, DigitalForm form, DigitalSectionCoefficients* out) const;
    // A Low Cut below first order: sections after the first whose reference lies below
    // minimumFrequency (same unit as the filter frequency) become identity.
    void dropNegligibleLowSections(double minimumFrequency);

private:
    void designGroups(double lowPassOrder);
    void buildSections();
    void applyUserQ(double sectionQ);

    std::array<BiquadPrototype, kMaximumSections> sections{};
    DesignFamily family = DesignFamily::Butterworth;
    float linearGain = 1.0f;
    int32_t numSections = 0;
    float order = 0.0f;
    PoleZeroGroupList groups;
    float q = static_cast<float>(kButterworthDamping);
    Shape shape = Shape::Bell;
};
