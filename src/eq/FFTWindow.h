#pragma once

#include <cstdint>

// Analysis windows shared by the FFT plan, the analyzer and the spectral stages. A window of L
// points is symmetric over L - 1 intervals; a caller may fill only a run of it (count values from
// position offset), e.g. N values of an (N + 1)-point window to get a periodic one.
class FFTWindow {
public:
    enum Type : int32_t { kRectangular = 0, kHann = 1, kHamming = 2, kKaiser = 3 };

    // Writes w(offset + i) for i in [0, count) and returns the window's sum: L for the rectangle,
    // (L - 1) * 0.5 for Hann, (L - 1) * 0.54 + 0.08 for Hamming (the sums of the whole window),
    // and the sum of the written values for Kaiser. For Kaiser the parameter is the side-lobe
    // attenuation in dB; the other types ignore it. Unknown types fill a rectangle.
    static double fill(int32_t type, double parameter, double* values, int32_t count, int32_t length,
                       int32_t offset = 0);

    // Kaiser's shape factor for a side-lobe attenuation in dB.
    static double kaiserBeta(double attenuationDb);

    // Zeroth-order modified Bessel function of the first kind, by its power series.
    static double besselI0(double x);
};
