#pragma once

// How the equaliser's stored parameter values turn into the quantities the engine and the display
// use. The " Q", " Threshold" and "Output Level" parameters store the left-hand values.

// Band Q from the stored 0..1 value: 40^(2x - 1), so 0 -> 0.025, 0.5 -> 1, 1 -> 40.
double qFromNormalized(double normalized);
double normalizedFromQ(double q);

// Threshold curve position from the stored 0..1 value (piecewise linear; 0.6666667 -> 0.7777778).
double thresholdFromNormalized(double normalized);
double normalizedFromThreshold(double threshold);
// A dynamic band's threshold in dB: 60 dB times (curve position - 1), so the stored 0 is -60 dB, the
// default -13.3 dB and 1 is 0 dB. The engine and the parameter's text use this one law.
double thresholdDbFromStored(double stored);
double storedFromThresholdDb(double db);

// Linear gain of the stored -1..1 Output Level: -21.6 dB at -0.6, 0 dB at 0, +36 dB at 1, and a
// quadratic fade to silence below -21.6 dB.
double outputLevelToGain(double level);
double gainToOutputLevel(double gain);
// The same in decibels (minus infinity for silence), for the level's display.
double outputLevelToDb(double level);
double dbToOutputLevel(double db);

// Linear interpolation through breakpoints; at or past the last x the last y, before the first x
// the first y.
double interpolateBreakpoints(double x, const double* xs, const double* ys, int count);
