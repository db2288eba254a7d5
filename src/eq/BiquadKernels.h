#pragma once

#include "eq/AnalogBiquadPrototype.h"

#include <array>
#include <cstdint>
#include <type_traits>

// The per-sample loops of the cascade, run over a span of float samples in place. Arithmetic and
// states are double; each section's output is rounded to float before it feeds the next section, so
// the result does not depend on how sections are grouped into loops.
//
// Speed: a section's recursion is a chain of dependent operations (feedback multiply, subtract and the
// flush), so one section alone leaves the CPU mostly idle. Two sections share one loop and overlap
// their chains; the two channels of a joint pair share one register (each lane computes exactly what
// the one-channel loop computes).

// Memory of one section for one channel. Direct form: the last two inputs and outputs. State-variable
// form: the last two inputs (kept so that the form can be switched) and the two integrator states.
struct SectionState {
    double x1 = 0.0;
    double x2 = 0.0;
    double y1OrS1 = 0.0;
    double y2OrS2 = 0.0;
};

namespace biquad_kernels {

// Adding and subtracting this pushes denormal tails to zero without touching the FPU mode.
inline constexpr double kDenormalFlush = 1e-16;

using DoublePair = double __attribute__((vector_size(16)));
using FloatPair = float __attribute__((vector_size(8)));

template <int Channels>
using Lane = std::conditional_t<Channels == 1, double, DoublePair>;

template <int Channels>
using SampleSpans = std::array<float*, Channels>;

template <int Channels>
using StatePointers = std::array<SectionState*, Channels>;

template <typename L>
inline L flushed(L y) {
    return (y + kDenormalFlush) - kDenormalFlush;
}

template <typename L>
inline L roundedToFloat(L y) {
    if constexpr (std::is_same_v<L, double>)
        return static_cast<float>(y);
    else
        return __builtin_convertvector(__builtin_convertvector(y, FloatPair), DoublePair);
}

template <int Channels>
inline Lane<Channels> load(const SampleSpans<Channels>& samples, int32_t i) {
    if constexpr (Channels == 1)
        return samples[0][i];
    else
        return DoublePair{samples[0][i], samples[1][i]};
}

template <int Channels>
inline void store(const SampleSpans<Channels>& samples, int32_t i, Lane<Channels> y) {
    if constexpr (Channels == 1) {
        samples[0][i] = static_cast<float>(y);
    } else {
        const FloatPair rounded = __builtin_convertvector(y, FloatPair);
        samples[0][i] = rounded[0];
        samples[1][i] = rounded[1];
    }
}

template <int Channels>
inline Lane<Channels> gather(const StatePointers<Channels>& states, int32_t k, double SectionState::*member) {
    if constexpr (Channels == 1)
        return states[0][k].*member;
    else
        return DoublePair{states[0][k].*member, states[1][k].*member};
}

template <int Channels>
inline void scatter(const StatePointers<Channels>& states, int32_t k, double SectionState::*member,
                    Lane<Channels> value) {
    if constexpr (Channels == 1) {
        states[0][k].*member = value;
    } else {
        states[0][k].*member = value[0];
        states[1][k].*member = value[1];
    }
}

// One section's coefficients and states held in registers for the length of a span.
template <int Channels>
struct RunningState {
    Lane<Channels> x1, x2, y1OrS1, y2OrS2;

    RunningState(const StatePointers<Channels>& states, int32_t k)
        : x1(gather<Channels>(states, k, &SectionState::x1)),
          x2(gather<Channels>(states, k, &SectionState::x2)),
          y1OrS1(gather<Channels>(states, k, &SectionState::y1OrS1)),
          y2OrS2(gather<Channels>(states, k, &SectionState::y2OrS2)) {}

    void save(const StatePointers<Channels>& states, int32_t k) const {
        scatter<Channels>(states, k, &SectionState::x1, x1);
        scatter<Channels>(states, k, &SectionState::x2, x2);
        scatter<Channels>(states, k, &SectionState::y1OrS1, y1OrS1);
        scatter<Channels>(states, k, &SectionState::y2OrS2, y2OrS2);
    }
};

// (b0, b1, b2, a1, a2): y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2. The feedback from y1 is added last so
// that the recursion waits on one multiply and one subtract before the flush.
template <int Channels>
struct DirectFormSection : RunningState<Channels> {
    double b0, b1, b2, a1, a2;

    DirectFormSection(const DigitalSectionCoefficients& c, const StatePointers<Channels>& states, int32_t k)
        : RunningState<Channels>(states, k) {
        set(c);
    }

    void set(const DigitalSectionCoefficients& c) {
        b0 = c[0];
        b1 = c[1];
        b2 = c[2];
        a1 = c[3];
        a2 = c[4];
    }

    Lane<Channels> run(Lane<Channels> x) {
        const Lane<Channels> y =
            flushed((b0 * x + b1 * this->x1 + b2 * this->x2 - a2 * this->y2OrS2) - a1 * this->y1OrS1);
        this->x2 = this->x1;
        this->x1 = x;
        this->y2OrS2 = this->y1OrS1;
        this->y1OrS1 = y;
        return y;
    }
};

// (g, d, mL, mB, mH), d the damping sum 2R + g: the trapezoidal state-variable section
//   hp = (x - d s1 - s2) h, bp = s1 + g hp, lp = s2 + g bp, s1' = bp + g hp, s2' = lp + g bp,
//   y = mB bp + mH hp + mL lp, with h = 1 / (1 + g d).
// Written out in the states it is the same filter as a linear map, which needs no chain of dependent
// steps from one state to the next (the integrators' own update would cost several):
//   bp = h s1 - g h s2 + g h x,  lp = g h s1 + (1 - g^2 h) s2 + g^2 h x,  hp = h (x - d s1 - s2),
//   s1' = 2 bp - s1,  s2' = 2 lp - s2.
template <int Channels>
struct StateVariableSection : RunningState<Channels> {
    // s1' = a11 s1 + a12 s2 + b1 x, s2' = a21 s1 + a22 s2 + b2 x, y = c1 s1 + c2 s2 + dx x.
    double a11, a12, b1, a21, a22, b2, c1, c2, dx;

    StateVariableSection(const DigitalSectionCoefficients& c, const StatePointers<Channels>& states,
                         int32_t k)
        : RunningState<Channels>(states, k) {
        set(c);
    }

    void set(const DigitalSectionCoefficients& c) {
        const double g = c[0], d = c[1], mL = c[2], mB = c[3], mH = c[4];
        const double h = 1.0 / (1.0 + g * d);
        const double gh = g * h;
        const double ggh = g * gh;
        a11 = (1.0 - g * d) * h; // 2 h - 1
        a12 = -2.0 * gh;
        b1 = 2.0 * gh;
        a21 = 2.0 * gh;
        a22 = 1.0 - 2.0 * ggh;
        b2 = 2.0 * ggh;
        c1 = mB * h - mH * d * h + mL * gh;
        c2 = -mB * gh - mH * h + mL * (1.0 - ggh);
        dx = mB * gh + mH * h + mL * ggh;
    }

    Lane<Channels> run(Lane<Channels> x) {
        const Lane<Channels> s1 = this->y1OrS1, s2 = this->y2OrS2;
        this->y1OrS1 = (b1 * x + a12 * s2) + a11 * s1;
        this->y2OrS2 = (b2 * x + a21 * s1) + a22 * s2;
        this->x2 = this->x1;
        this->x1 = x;
        return flushed(dx * x + c1 * s1 + c2 * s2);
    }
};

// Coefficients that hold for the whole span.
struct FixedCoefficients {
    static constexpr bool kPerSample = false;
    const DigitalSectionCoefficients* sections;
    DigitalSectionCoefficients at(int32_t k, int32_t) const { return sections[k]; }
};

// The coefficient set a fraction t of the way from lower to upper; every user of a ramp computes its
// coefficients through this, so a ramp sample and a fixed set taken from it filter identically.
inline DigitalSectionCoefficients interpolated(const DigitalSectionCoefficients& lower,
                                               const DigitalSectionCoefficients& upper, double t) {
    DigitalSectionCoefficients c;
    for (size_t j = 0; j < c.size(); ++j)
        c[j] = lower[j] + (upper[j] - lower[j]) * t;
    return c;
}

// Coefficients moving sample by sample between two sets: sample i uses positions[i].
struct RampCoefficients {
    static constexpr bool kPerSample = true;
    const DigitalSectionCoefficients* lower;
    const DigitalSectionCoefficients* upper;
    const double* positions;
    DigitalSectionCoefficients at(int32_t k, int32_t i) const {
        return interpolated(lower[k], upper[k], positions[i]);
    }
};

// Sections k and k + 1 (Group = 2) or k alone over the span, in place.
template <template <int> class Section, int Channels, int Group, typename Source>
void runGroup(const Source& source, const StatePointers<Channels>& states, int32_t k,
              const SampleSpans<Channels>& samples, int32_t count) {
    Section<Channels> first(source.at(k, 0), states, k);
    if constexpr (Group == 1) {
        for (int32_t i = 0; i < count; ++i) {
            if constexpr (Source::kPerSample)
                first.set(source.at(k, i));
            store<Channels>(samples, i, first.run(load<Channels>(samples, i)));
        }
        first.save(states, k);
    } else {
        Section<Channels> second(source.at(k + 1, 0), states, k + 1);
        for (int32_t i = 0; i < count; ++i) {
            if constexpr (Source::kPerSample) {
                first.set(source.at(k, i));
                second.set(source.at(k + 1, i));
            }
            store<Channels>(samples, i, second.run(roundedToFloat(first.run(load<Channels>(samples, i)))));
        }
        first.save(states, k);
        second.save(states, k + 1);
    }
}

template <template <int> class Section, int Channels, typename Source>
void runSections(const Source& source, int32_t numSections, const StatePointers<Channels>& states,
                 const SampleSpans<Channels>& samples, int32_t count) {
    int32_t k = 0;
    for (; k + 1 < numSections; k += 2)
        runGroup<Section, Channels, 2>(source, states, k, samples, count);
    if (k < numSections)
        runGroup<Section, Channels, 1>(source, states, k, samples, count);
}

// Runs sections [0, numSections) of a cascade over the span, in the given form, with coefficients
// from source (FixedCoefficients or RampCoefficients). states[c] points at channel c's first section.
template <int Channels, typename Source>
void cascade(DigitalForm form, const Source& source, int32_t numSections,
             const StatePointers<Channels>& states, const SampleSpans<Channels>& samples, int32_t count) {
    if (count <= 0)
        return;
    if (form == DigitalForm::DirectForm)
        runSections<DirectFormSection, Channels>(source, numSections, states, samples, count);
    else
        runSections<StateVariableSection, Channels>(source, numSections, states, samples, count);
}

} // namespace biquad_kernels
