#pragma once

#include <array>
#include <complex>
#include <cstdint>

// Single-precision epsilon: the one test for "zero" throughout the analog design.
inline constexpr double kDesignEpsilon = 1.1920929e-07;
// Butterworth damping (1/sqrt 2) and the floor of any section damping.
inline constexpr double kButterworthDamping = 0.70710677;
inline constexpr double kMinimumDamping = 0.035355337;

// An analog filter evaluated at frequencies in Hz (or any unit, as long as the reference
// frequency uses the same one). "Squared magnitude" is power: there is no square root here.
class AnalogFilterPrototypeBase {
public:
    virtual ~AnalogFilterPrototypeBase() = default;

    virtual std::complex<double> response(double frequency) const = 0;
    virtual double squaredMagnitude(double frequency) const;
    virtual void squaredMagnitudes(const float* frequencies, float* out, int32_t count) const;
    virtual void phases(const float* frequencies, float* out, int32_t count) const;
    // Takes the inverse separately so that callers holding 1/f0 lose no precision.
    virtual void setFrequency(double frequency, double inverseFrequency);
    void setFrequency(double frequency) { setFrequency(frequency, 1.0 / frequency); }

    double getReferenceFrequency() const { return referenceFrequency; }
    double getFrequencyScale() const { return frequencyScale; }

protected:
    double frequencyScale = 1.0;
    double referenceFrequency = 1.0;
};

// H(s) = (b2 s^2 + b1 s + b0) / (a2 s^2 + a1 s + a0), s normalised to the reference frequency.
struct AnalogSectionCoefficients {
    double b2 = 0.0, b1 = 0.0, b0 = 0.0;
    double a2 = 0.0, a1 = 0.0, a0 = 0.0;
};

enum class DigitalForm : int32_t {
    DirectForm = 0,    // (b0, b1, b2, a1, a2), a0 = 1
    StateVariable = 1, // (g, d, mL, mB, mH): integrator gain, damping sum 2R + g, output mixes
};

using DigitalSectionCoefficients = std::array<double, 5>;

// One s-domain section of a prototype.
class AnalogBiquadPrototype : public AnalogFilterPrototypeBase {
public:
    using AnalogFilterPrototypeBase::setFrequency;

    std::complex<double> response(double frequency) const override;
    double squaredMagnitude(double frequency) const override;
    void squaredMagnitudes(const float* frequencies, float* out, int32_t count) const override;
    void phases(const float* frequencies, float* out, int32_t count) const override;
    void setFrequency(double frequency, double inverseFrequency) override;
    // Adds this section's phase to the values already in phases.
    virtual void accumulatePhases(const float* frequencies, float* phases, int32_t count) const;

    void setCoefficients(const AnalogSectionCoefficients& newCoefficients);
    const AnalogSectionCoefficients& getCoefficients() const { return coefficients; }
    void scaleNumerator(double factor);
    void setIdentity();
    int32_t order() const;
    // Roots of the denominator and numerator, relative to the section's reference; a missing root
    // (first order, or a zero at infinity) is +infinity. Returns the section order.
    int32_t roots(std::array<std::complex<double>, 2>& poles,
                  std::array<std::complex<double>, 2>& zeros) const;

    // Bilinear transform with k = tan(pi f / fs) for the section's reference frequency f.
    DigitalSectionCoefficients toDigital(double k, DigitalForm form) const;

    double getRelativeReference() const { return relativeReference; }
    void setRelativeReference(double relative) { relativeReference = relative; }
    int32_t getGroupIndex() const { return groupIndex; }
    void setGroupIndex(int32_t index) { groupIndex = index; }
    double getDamping() const { return damping; }
    void setDamping(double value) { damping = value; }

private:
    void updatePowerPolynomials() const;

    // |H|^2 as polynomials in f^2 with the frequency scale folded in: numerator n2, n1, n0 and
    // denominator d2, d1, d0.
    mutable bool cacheValid = false;
    mutable std::array<double, 6> power{};
    double relativeReference = 1.0;
    int32_t groupIndex = -1;
    double damping = kButterworthDamping;
    AnalogSectionCoefficients coefficients;
};
