#pragma once

#include "eq/AnalogFilterPrototype.h"

#include <cstdint>

// How a band's analog sections become digital biquads.
enum class CoefficientCalculation : int32_t {
    MatchedMagnitude = 0,   // each section fitted to its analog magnitude (no cramping near Nyquist)
    Bilinear = 1,           // bilinear transform with k = tan(w0 / 2)
    BilinearPrewarpedQ = 2, // as Bilinear; band shapes also get their Q pre-warped by the caller
};

// Tolerance of the flat-section test: a static gain, or a gain modulated per sample.
inline constexpr double kStaticGainTolerance = 0.0001;
inline constexpr double kDynamicGainTolerance = 0.001;

// The digital sections of a prototype that was designed at the angular frequency w0 (radians per
// sample, so its response at w is the analog response at the digital frequency w). The matched
// design is used when asked for, the family is Butterworth and the shape is not All Pass; every
// other case, and every section the match cannot improve on, is the bilinear transform with
// k = tan(w0 / 2), w0 kept within [1e-5, 3.1315928]. Writes one set of coefficients per section in
// the requested form and returns the number of sections. Runs on the audio thread: no allocation,
// a fixed amount of work per section.
int32_t designDigitalSections(const AnalogFilterPrototype& prototype, double w0,
                              CoefficientCalculation calculation, DigitalForm form, double tolerance,
                              DigitalSectionCoefficients* out);
