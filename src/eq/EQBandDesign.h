#pragma once

#include "eq/AnalogFilterPrototype.h"

// How a band's parameters become an analog design: slope to order, the Q and gain rules, and the
// band's edge frequencies for the processor and the display.

// The settings of one band as the designer sees them. slope is the engine slope value (-1 for
// 0 dB/oct up to 9 for "Brickwall"), gain in dB; secondFrequency is used by Flat Tilt only.
struct EQBandSettings {
    FilterShape shape = FilterShape::Bell;
    float slope = 1.0f;
    float gain = 0.0f;
    float q = 1.0f;
    double frequency = 1000.0;
    double secondFrequency = 640.0;

    bool operator==(const EQBandSettings&) const = default;
};

struct BandEdges {
    double lower = 0.0;
    double upper = 0.0;
};

bool isBrickwall(FilterShape shape, float slope);
// Slope value to dB/oct through (-1, 0), (5, 36), (6, 48), (7, 72), (8, 96); capped at 96.
double slopeToDbPerOctave(float slope);
// dB/oct to slope value through the same table: 0 or less gives -1, above 96 gives 9.
float dbPerOctaveToSlope(double dbPerOctave);
// The (possibly fractional) filter order with each shape's minimum; 12 for a brickwall cut.
double orderForSlope(FilterShape shape, float slope);
// The user's Q as the prototype's damping reference, and back.
double prototypeQ(FilterShape shape, double userQ);
double userQ(FilterShape shape, double prototypeQ);

// Designs the prototype for the band and sets its frequency.
void designBand(AnalogFilterPrototype& prototype, const EQBandSettings& band);
// The design a running filter realises: the band's frequencies in radians per sample, and a Low
// Cut below first order without the sections that would only act below about a hertz.
void designDigitalBand(AnalogFilterPrototype& prototype, const EQBandSettings& angularBand,
                       double sampleRate);

BandEdges bandEdges(FilterShape shape, double frequency, float q, float slope);
