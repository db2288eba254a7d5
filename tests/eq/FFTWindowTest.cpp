#include "eq/FFTWindow.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <vector>

namespace {

struct FilledWindow {
    std::vector<double> values;
    double returnedSum;
};

FilledWindow fillWhole(int32_t type, double parameter, int32_t length) {
    FilledWindow window{std::vector<double>(static_cast<size_t>(length), -1.0), 0.0};
    window.returnedSum = FFTWindow::fill(type, parameter, window.values.data(), length, length);
    return window;
}

double sumOf(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

} // namespace

TEST(FFTWindow, RaisedCosineAndRectangleSumsFollowTheirClosedForms) {
    for (int32_t length : {3, 9, 64, 1001}) {
        SCOPED_TRACE(length);
        const struct {
            int32_t type;
            double expectedSum;
        } cases[] = {{FFTWindow::kRectangular, 1.0 * length},
                     {FFTWindow::kHann, (length - 1) * 0.5},
                     {FFTWindow::kHamming, (length - 1) * 0.54 + 0.08}};
        for (const auto& c : cases) {
            const FilledWindow window = fillWhole(c.type, 0.0, length);
            EXPECT_NEAR(sumOf(window.values), c.expectedSum, 1e-9 * length) << "type " << c.type;
            EXPECT_NEAR(window.returnedSum, c.expectedSum, 1e-9 * length) << "type " << c.type;
        }
    }
}

TEST(FFTWindow, RaisedCosinesAreSymmetricWithTheirAnchorValues) {
    const int32_t length = 65;
    const FilledWindow hann = fillWhole(FFTWindow::kHann, 0.0, length);
    const FilledWindow hamming = fillWhole(FFTWindow::kHamming, 0.0, length);
    EXPECT_NEAR(hann.values.front(), 0.0, 1e-15);
    EXPECT_NEAR(hann.values[32], 1.0, 1e-15);
    EXPECT_NEAR(hann.values[16], 0.5, 1e-12);
    EXPECT_NEAR(hamming.values.front(), 0.08, 1e-15);
    EXPECT_NEAR(hamming.values[32], 1.0, 1e-15);
    for (int32_t i = 0; i < length; ++i) {
        EXPECT_NEAR(hann.values[static_cast<size_t>(i)], hann.values[static_cast<size_t>(length - 1 - i)],
                    1e-12);
        EXPECT_NEAR(hamming.values[static_cast<size_t>(i)],
                    hamming.values[static_cast<size_t>(length - 1 - i)], 1e-12);
    }
}

TEST(FFTWindow, KaiserBetaRule) {
    // 0.12438 (A + 6.3) from 60 dB; 0.76609 (A - 13.26)^0.4 + 0.09834 (A - 13.26) down to 13.26 dB.
    EXPECT_NEAR(FFTWindow::kaiserBeta(60.0), 8.246394, 1e-9);
    EXPECT_NEAR(FFTWindow::kaiserBeta(40.0), 5.481577671231781, 1e-9);
    EXPECT_DOUBLE_EQ(FFTWindow::kaiserBeta(13.0), 0.0);
    EXPECT_DOUBLE_EQ(FFTWindow::kaiserBeta(10.0), 0.0);
    EXPECT_NEAR(FFTWindow::kaiserBeta(13.26), 0.0, 1e-12);
}

TEST(FFTWindow, BesselI0MatchesTheLibraryFunction) {
    for (double x : {0.0, 0.25, 1.0, 3.5, 8.246394, 20.0, 40.0})
        EXPECT_NEAR(FFTWindow::besselI0(x) / std::cyl_bessel_i(0.0, x), 1.0, 1e-13) << x;
}

TEST(FFTWindow, KaiserValuesAndSums) {
    const int32_t length = 33;
    for (double attenuation : {60.0, 40.0, 10.0}) {
        SCOPED_TRACE(attenuation);
        const FilledWindow window = fillWhole(FFTWindow::kKaiser, attenuation, length);
        const double beta = FFTWindow::kaiserBeta(attenuation);
        double referenceSum = 0.0;
        for (int32_t j = 0; j < length; ++j) {
            const double ratio = (2.0 * j - (length - 1)) / (length - 1);
            const double expected =
                std::cyl_bessel_i(0.0, beta * std::sqrt(1.0 - ratio * ratio)) / std::cyl_bessel_i(0.0, beta);
            EXPECT_NEAR(window.values[static_cast<size_t>(j)], expected, 1e-12) << j;
            referenceSum += expected;
        }
        EXPECT_NEAR(window.returnedSum, referenceSum, 1e-10);
    }
    // Below 13.26 dB beta is 0: the rectangle.
    EXPECT_NEAR(fillWhole(FFTWindow::kKaiser, 10.0, length).returnedSum, length, 1e-12);
    // A 60 dB Kaiser window ends at 1 / I0(beta).
    EXPECT_NEAR(fillWhole(FFTWindow::kKaiser, 60.0, length).values.back(),
                1.0 / std::cyl_bessel_i(0.0, 8.246394), 1e-12);
}

TEST(FFTWindow, PartialFillsAreSlicesOfTheWholeWindow) {
    const int32_t length = 40;
    for (int32_t type : {FFTWindow::kHann, FFTWindow::kHamming, FFTWindow::kKaiser}) {
        const FilledWindow whole = fillWhole(type, 50.0, length);
        std::vector<double> slice(10);
        FFTWindow::fill(type, 50.0, slice.data(), 10, length, 25);
        for (size_t i = 0; i < slice.size(); ++i)
            EXPECT_DOUBLE_EQ(slice[i], whole.values[25 + i]) << "type " << type << " at " << i;
    }
}
