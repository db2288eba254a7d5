#pragma once

#include "eq/AnalogBiquadPrototype.h"

#include <array>
#include <cstdint>

// The per-sample loops of one second-order section, run over a span of float samples in place.
// Arithmetic and states are double; the section's output is rounded to float before it feeds the
// next section. Each kernel runs Channels channels with the same coefficients in one loop.

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

inline double flushed(double y) {
    return (y + kDenormalFlush) - kDenormalFlush;
}

// (b0, b1, b2, a1, a2): y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2.
template <int Channels>
void directForm(const DigitalSectionCoefficients& c, const std::array<SectionState*, Channels>& states,
                const std::array<float*, Channels>& samples, int32_t count) {
    const double b0 = c[0], b1 = c[1], b2 = c[2], a1 = c[3], a2 = c[4];
    std::array<SectionState, Channels> s;
    for (int ch = 0; ch < Channels; ++ch)
        s[ch] = *states[ch];
    for (int32_t i = 0; i < count; ++i) {
        for (int ch = 0; ch < Channels; ++ch) {
            const double x = samples[ch][i];
            const double y =
                flushed(b0 * x + b1 * s[ch].x1 + b2 * s[ch].x2 - a1 * s[ch].y1OrS1 - a2 * s[ch].y2OrS2);
            s[ch].x2 = s[ch].x1;
            s[ch].x1 = x;
            s[ch].y2OrS2 = s[ch].y1OrS1;
            s[ch].y1OrS1 = y;
            samples[ch][i] = static_cast<float>(y);
        }
    }
    for (int ch = 0; ch < Channels; ++ch)
        *states[ch] = s[ch];
}

// (g, d, mL, mB, mH), d the damping sum 2R + g: a trapezoidal state-variable section.
template <int Channels>
void stateVariable(const DigitalSectionCoefficients& c, const std::array<SectionState*, Channels>& states,
                   const std::array<float*, Channels>& samples, int32_t count) {
    const double g = c[0], d = c[1], mL = c[2], mB = c[3], mH = c[4];
    const double h = 1.0 / (1.0 + g * d);
    std::array<SectionState, Channels> s;
    for (int ch = 0; ch < Channels; ++ch)
        s[ch] = *states[ch];
    for (int32_t i = 0; i < count; ++i) {
        for (int ch = 0; ch < Channels; ++ch) {
            const double x = samples[ch][i];
            const double hp = (x - d * s[ch].y1OrS1 - s[ch].y2OrS2) * h;
            const double bp = s[ch].y1OrS1 + g * hp;
            const double lp = s[ch].y2OrS2 + g * bp;
            s[ch].y1OrS1 = bp + g * hp;
            s[ch].y2OrS2 = lp + g * bp;
            s[ch].x2 = s[ch].x1;
            s[ch].x1 = x;
            samples[ch][i] = static_cast<float>(flushed(mB * bp + mH * hp + mL * lp));
        }
    }
    for (int ch = 0; ch < Channels; ++ch)
        *states[ch] = s[ch];
}

// Runs sections [0, numSections) of a cascade over the span, in the given form.
template <int Channels>
void cascade(DigitalForm form, const DigitalSectionCoefficients* sections, int32_t numSections,
             const std::array<SectionState*, Channels>& states, const std::array<float*, Channels>& samples,
             int32_t count) {
    std::array<SectionState*, Channels> sectionStates = states;
    for (int32_t k = 0; k < numSections; ++k) {
        if (form == DigitalForm::DirectForm)
            directForm<Channels>(sections[k], sectionStates, samples, count);
        else
            stateVariable<Channels>(sections[k], sectionStates, samples, count);
        for (auto& state : sectionStates)
            ++state;
    }
}

} // namespace biquad_kernels
