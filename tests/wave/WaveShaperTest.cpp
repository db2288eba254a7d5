#include "wave/WaveShaper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Floats = std::vector<float>;

constexpr float kTolerance = 1e-6f;

// Relative to the value where it is large, absolute near zero: single-precision accuracy.
::testing::AssertionResult closeInSinglePrecision(float actual, float expected, float tolerance) {
    const float allowed = tolerance * std::max(1.0f, std::fabs(expected));
    if (std::fabs(actual - expected) <= allowed)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << actual << " differs from " << expected << " by more than " << allowed;
}

float generic(int32_t type, float x, float p = 1.0f, float b = 1.0f, float level = 0.0f) {
    const WaveShaper shaper(b, p, type);
    alignas(16) float in[4] = {x}, lv[4] = {level}, out[4] = {};
    shaper.process(in, &lv[0], out, 1);
    return out[0];
}

float fast(const WaveShaper& shaper, float x, float level = 0.0f) {
    alignas(16) float in[4] = {x}, lv[4] = {level}, out[4] = {};
    shaper.process(in, lv, out, 1);
    return out[0];
}

// Every fast form, with how the factory is asked for it.
struct FastCase {
    std::string name;
    int32_t type;
    bool linearLevel;
    float p, b;
};

std::vector<FastCase> fastCases() {
    std::vector<FastCase> cases = {
        {"ArcTan", WaveShaper::kArcTan, false, 1.0f, 1.0f},
        {"DivAbs", WaveShaper::kDivAbs, false, 1.0f, 1.0f},
        {"Sine", WaveShaper::kSine, false, 1.0f, 1.0f},
        {"PolynomeOrder2", WaveShaper::kPolynomeOrder2, false, 1.0f, 1.0f},
        {"PolynomeOrder3", WaveShaper::kPolynomeOrder3, false, 1.0f, 1.0f},
        {"Tube", WaveShaper::kTube, false, 1.0f, 1.0f},
        {"Rectify", WaveShaper::kRectify, false, 1.0f, 1.0f},
        {"TanHyperbolicLL", WaveShaper::kTanHyperbolic, true, 1.0f, 1.0f},
    };
    for (float b : {0.5f, 2.0f, 3.7f}) {
        cases.push_back({"ArcTanB", WaveShaper::kArcTan, false, 1.0f, b});
        cases.push_back({"DivAbsB", WaveShaper::kDivAbs, false, 1.0f, b});
    }
    for (float p : {0.5f, 1.5f, 2.0f, 4.0f}) {
        for (float b : {1.0f, 0.7f, 2.0f}) {
            cases.push_back({"ArcTanPB", WaveShaper::kArcTan, false, p, b});
            cases.push_back({"DivAbsPB", WaveShaper::kDivAbs, false, p, b});
            cases.push_back({"PolynomeOrder3PB", WaveShaper::kPolynomeOrder3, false, p, b});
            cases.push_back({"TubePB", WaveShaper::kTube, false, p, b});
        }
    }
    return cases;
}

// A dense sweep over [-6, 6], with zero, tiny and large values mixed in.
Floats sweep() {
    Floats values;
    for (int32_t i = -12000; i <= 12000; ++i)
        values.push_back(static_cast<float>(i) * 0.0005f);
    for (float x :
         {1e-30f, -1e-30f, 1e-6f, -1e-6f, 0.320018f, -0.08905f, -1.754818f, 40.0f, -40.0f, 1e4f, -1e4f, 0.5f})
        values.push_back(x);
    return values;
}

} // namespace

TEST(WaveShaperValues, EveryCurveMapsZeroToZero) {
    for (int32_t type = 0; type <= 13; ++type) {
        EXPECT_EQ(generic(type, 0.0f), 0.0f) << "type " << type;
        EXPECT_EQ(generic(type, 0.0f, 2.0f, 0.5f), 0.0f) << "type " << type;
    }
    for (const FastCase& c : fastCases())
        EXPECT_EQ(fast(*WaveShaper::create(c.type, c.linearLevel, c.p, c.b), 0.0f), 0.0f) << c.name;
}

TEST(WaveShaperValues, PlainCurvesAtTheirAnchorPoints) {
    const float arcTanOfOne = static_cast<float>(2.0 / M_PI * std::atan(M_PI / 2.0));
    EXPECT_NEAR(arcTanOfOne, 0.6391, 1e-4);
    const struct {
        int32_t type;
        float x, expected;
    } anchors[] = {
        {WaveShaper::kArcTan, 1.0f, arcTanOfOne},  {WaveShaper::kDivAbs, 1.0f, 0.5f},
        {WaveShaper::kSine, 2.0f, 1.0f},           {WaveShaper::kPolynomeOrder2, -0.5f, -0.75f},
        {WaveShaper::kRectify, -0.5f, 0.75f},      {WaveShaper::kPolynomeOrder3, 1.0f, 1.0f},
        {WaveShaper::kPolynomeOrder3, 3.0f, 1.0f}, {WaveShaper::kTube, 1.0f, 0.6299328f},
        {WaveShaper::kTube, -2.0f, -1.175451f},
    };
    for (const auto& anchor : anchors) {
        EXPECT_TRUE(closeInSinglePrecision(generic(anchor.type, anchor.x), anchor.expected, kTolerance))
            << "generic type " << anchor.type << " at " << anchor.x;
        const auto shaper = WaveShaper::create(anchor.type, false, 1.0f, 1.0f);
        EXPECT_TRUE(closeInSinglePrecision(fast(*shaper, anchor.x), anchor.expected, 2.0f * kTolerance))
            << "fast type " << anchor.type << " at " << anchor.x;
    }
}

TEST(WaveShaperValues, TubePiecesMeet) {
    const auto tube = WaveShaper::create(WaveShaper::kTube, false, 1.0f, 1.0f);
    // Either side of each joint, the curve moves no more than its slope allows.
    for (float joint : {0.320018f, -0.08905f, -1.754818f}) {
        const float below = fast(*tube, std::nextafter(joint, -10.0f));
        const float at = fast(*tube, joint);
        EXPECT_NEAR(below, at, 2e-5f) << "joint " << joint;
    }
    EXPECT_NEAR(fast(*tube, -0.08905f), -0.39942f, 1e-5f);
    EXPECT_NEAR(fast(*tube, std::nextafter(-0.08905f, 0.0f)), -0.39942f, 1e-5f);
    EXPECT_NEAR(fast(*tube, -1.754818f), -1.175451f, 1e-5f);
    EXPECT_NEAR(fast(*tube, 0.32f), 0.6299328f, 1e-5f);
    EXPECT_EQ(fast(*tube, 5.0f), 0.6299328f);
    EXPECT_EQ(fast(*tube, -5.0f), -1.175451f);
}

TEST(WaveShaperValues, AsymmetricAndLinearLevelForms) {
    // ArcTanB with b = 2: the negative half is ArcTan(2x) / 2.
    const float expected = static_cast<float>(2.0 / M_PI * std::atan(M_PI / 2.0 * -2.0) / 2.0);
    EXPECT_NEAR(expected, -0.4019, 1e-4);
    EXPECT_TRUE(
        closeInSinglePrecision(fast(*WaveShaper::create(WaveShaper::kArcTan, false, 1.0f, 2.0f), -1.0f),
                               expected, 2.0f * kTolerance));
    EXPECT_TRUE(
        closeInSinglePrecision(generic(WaveShaper::kArcTan, -1.0f, 1.0f, 2.0f), expected, kTolerance));
    // The positive half does not see b.
    EXPECT_TRUE(closeInSinglePrecision(generic(WaveShaper::kArcTan, 1.0f, 1.0f, 2.0f),
                                       generic(WaveShaper::kArcTan, 1.0f), kTolerance));

    const auto tanhLL = WaveShaper::create(WaveShaper::kTanHyperbolic, true, 1.0f, 1.0f);
    const float bent = static_cast<float>(0.5 + 0.5 * std::tanh(1.0));
    EXPECT_NEAR(bent, 0.8808, 1e-4);
    for (float sign : {1.0f, -1.0f}) {
        EXPECT_FLOAT_EQ(fast(*tanhLL, sign * 0.4f, 0.5f), sign * 0.4f);
        EXPECT_TRUE(closeInSinglePrecision(fast(*tanhLL, sign * 1.0f, 0.5f), sign * bent, 2.0f * kTolerance));
        EXPECT_FLOAT_EQ(generic(WaveShaper::kTanHyperbolic, sign * 0.4f, 1.0f, 1.0f, 0.5f), sign * 0.4f);
        EXPECT_TRUE(closeInSinglePrecision(generic(WaveShaper::kTanHyperbolic, sign * 1.0f, 1.0f, 1.0f, 0.5f),
                                           sign * bent, kTolerance));
    }
    for (float x : {0.1f, 0.7f, 2.5f, -3.0f})
        EXPECT_TRUE(closeInSinglePrecision(fast(*tanhLL, x, 0.0f), std::tanh(x), 2.0f * kTolerance)) << x;
    // A level of 1 leaves no room to bend: the input passes up to 1 and stops there.
    EXPECT_FLOAT_EQ(fast(*tanhLL, 0.7f, 1.0f), 0.7f);
    EXPECT_FLOAT_EQ(fast(*tanhLL, 3.0f, 1.0f), 1.0f);
}

TEST(WaveShaperFastForms, EqualTheGenericFormOverADenseSweep) {
    const Floats inputs = sweep();
    // Not a multiple of four, so the last group runs past n; the arrays are padded for it.
    const auto n = static_cast<int32_t>(inputs.size());
    ASSERT_NE(n % 4, 0);
    Floats padded(inputs);
    padded.resize(inputs.size() + 3, 0.0f);
    Floats levels(padded.size());
    for (size_t i = 0; i < levels.size(); ++i)
        levels[i] = 0.99f * static_cast<float>((i * 7919) % 1000) / 1000.0f;

    for (const FastCase& c : fastCases()) {
        const auto shaper = WaveShaper::create(c.type, c.linearLevel, c.p, c.b);
        ASSERT_NE(typeid(*shaper), typeid(WaveShaper)) << c.name << " fell to the generic form";
        const WaveShaper reference(c.b, c.p, c.type);
        const float* level = c.linearLevel ? levels.data() : nullptr;
        Floats out(padded.size()), expected(padded.size());
        shaper->process(padded.data(), level, out.data(), n);
        reference.process(padded.data(), level, expected.data(), n);
        int failures = 0;
        for (int32_t i = 0; i < n && failures < 5; ++i) {
            const auto check = closeInSinglePrecision(out[static_cast<size_t>(i)],
                                                      expected[static_cast<size_t>(i)], 4.0f * kTolerance);
            if (!check) {
                ++failures;
                ADD_FAILURE() << c.name << " p=" << c.p << " b=" << c.b
                              << " at x=" << inputs[static_cast<size_t>(i)] << ": " << check.message();
            }
        }
        // In place gives the same.
        Floats inPlace(padded);
        shaper->process(inPlace.data(), level, inPlace.data(), n);
        for (int32_t i = 0; i < n; ++i)
            ASSERT_EQ(inPlace[static_cast<size_t>(i)], out[static_cast<size_t>(i)]) << c.name << " in place";
    }
}

TEST(WaveShaperFastForms, LastGroupStaysInsideItsPadding) {
    for (const FastCase& c : fastCases()) {
        const auto shaper = WaveShaper::create(c.type, c.linearLevel, c.p, c.b);
        const WaveShaper reference(c.b, c.p, c.type);
        for (int32_t n = 0; n <= 9; ++n) {
            // Guard words after the padding of the last group.
            constexpr float kGuard = 12345.0f;
            const auto padded = static_cast<size_t>((n + 3) / 4 * 4);
            Floats in(padded + 4, kGuard), level(padded + 4, 0.25f), out(padded + 4, kGuard),
                expected(padded + 4);
            for (int32_t i = 0; i < n; ++i)
                in[static_cast<size_t>(i)] = -1.5f + 0.4f * static_cast<float>(i);
            const float* levelData = c.linearLevel ? level.data() : nullptr;
            shaper->process(in.data(), levelData, out.data(), n);
            reference.process(in.data(), levelData, expected.data(), n);
            for (int32_t i = 0; i < n; ++i)
                EXPECT_TRUE(closeInSinglePrecision(out[static_cast<size_t>(i)],
                                                   expected[static_cast<size_t>(i)], 4.0f * kTolerance))
                    << c.name << " n=" << n << " i=" << i;
            for (size_t i = padded; i < out.size(); ++i)
                EXPECT_EQ(out[i], kGuard) << c.name << " wrote past its last group, n=" << n;
        }
    }
}

TEST(WaveShaperFactory, PicksTheSpecifiedClass) {
    const struct {
        int32_t type;
        bool linearLevel;
        float p, b;
        const std::type_info& expected;
    } cases[] = {
        {0, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipArcTanFast>)},
        {2, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipDivAbsFast>)},
        {6, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipSineFast>)},
        {7, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipPolynomeOrder2Fast>)},
        {8, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipPolynomeOrder3Fast>)},
        {11, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipTubeFast>)},
        {13, false, 1.0f, 1.0f, typeid(WaveShaperVec<vectorClipRectifyFast>)},
        {0, false, 1.0f, 2.0f, typeid(WaveShaperVecB<vectorClipArcTanBFast>)},
        {2, false, 1.0f, 0.5f, typeid(WaveShaperVecB<vectorClipDivAbsBFast>)},
        {0, false, 2.0f, 1.0f, typeid(WaveShaperVecPB<vectorClipArcTanPBFast>)},
        {2, false, 2.0f, 1.0f, typeid(WaveShaperVecPB<vectorClipDivAbsPBFast>)},
        {8, false, 1.0f, 2.0f, typeid(WaveShaperVecPB<vectorClipPolynomeOrder3PBFast>)},
        {8, false, 3.0f, 1.0f, typeid(WaveShaperVecPB<vectorClipPolynomeOrder3PBFast>)},
        {11, false, 1.0f, 2.0f, typeid(WaveShaperVecPB<vectorClipTubePBFast>)},
        {11, false, 0.5f, 1.0f, typeid(WaveShaperVecPB<vectorClipTubePBFast>)},
        {4, true, 1.0f, 1.0f, typeid(WaveShaperVecLL<vectorClipTanHyperbolicLLFast>)},
        // No parametrised forms for these: the generic per-sample path.
        {6, false, 1.0f, 2.0f, typeid(WaveShaper)},
        {7, false, 2.0f, 1.0f, typeid(WaveShaper)},
        {13, false, 1.0f, 0.5f, typeid(WaveShaper)},
        // Codes without a fast form, and every linear-level case but plain tanh.
        {1, false, 1.0f, 1.0f, typeid(WaveShaper)},
        {4, false, 1.0f, 1.0f, typeid(WaveShaper)},
        {12, false, 1.0f, 1.0f, typeid(WaveShaper)},
        {4, true, 2.0f, 1.0f, typeid(WaveShaper)},
        {4, true, 1.0f, 2.0f, typeid(WaveShaper)},
        {0, true, 1.0f, 1.0f, typeid(WaveShaper)},
        {11, true, 1.0f, 1.0f, typeid(WaveShaper)},
    };
    for (const auto& c : cases) {
        const auto shaper = WaveShaper::create(c.type, c.linearLevel, c.p, c.b);
        EXPECT_EQ(typeid(*shaper), c.expected)
            << "type " << c.type << " linear level " << c.linearLevel << " p " << c.p << " b " << c.b;
        EXPECT_EQ(shaper->getType(), c.type);
        EXPECT_FLOAT_EQ(shaper->getP(), c.p);
        EXPECT_FLOAT_EQ(shaper->getB(), c.b);
    }
    // Within the single-precision epsilon of 1 counts as 1.
    EXPECT_EQ(typeid(*WaveShaper::create(0, false, 1.0f + 1e-7f, 1.0f - 1e-7f)),
              typeid(WaveShaperVec<vectorClipArcTanFast>));
    EXPECT_EQ(typeid(*WaveShaper::create(0, false, 1.0f + 1e-6f, 1.0f)),
              typeid(WaveShaperVecPB<vectorClipArcTanPBFast>));
}

TEST(WaveShaperFactory, AbsurdParametersStillGiveFiniteCurves) {
    for (float bad : {0.0f, -2.0f, NAN, INFINITY, 1e30f}) {
        for (int32_t type = 0; type <= 13; ++type) {
            for (const auto& shaper :
                 {WaveShaper::create(type, false, bad, 1.0f), WaveShaper::create(type, false, 1.0f, bad)}) {
                for (float x : {-1e30f, -3.0f, -0.5f, 0.0f, 0.25f, 2.0f, 1e30f})
                    EXPECT_TRUE(std::isfinite(fast(*shaper, x)))
                        << "type " << type << " parameter " << bad << " x " << x;
            }
        }
    }
}

TEST(WaveShaperValues, CodesWithoutFastFormsAreOddMonotoneAndBounded) {
    // The generic laws of the remaining codes: odd (the sign comes back), rising and saturating
    // where they are meant to, never NaN.
    for (int32_t type : {1, 3, 5, 9, 10, 12}) {
        float previous = generic(type, 0.0f);
        for (float x = 0.01f; x < 8.0f; x += 0.01f) {
            const float y = generic(type, x);
            EXPECT_TRUE(std::isfinite(y)) << type;
            EXPECT_GE(y, previous) << "type " << type << " at " << x;
            EXPECT_FLOAT_EQ(generic(type, -x), -y) << type;
            previous = y;
        }
        EXPECT_NEAR(generic(type, 1e-3f) / 1e-3f, 1.0f, 0.01f) << "type " << type << " has slope 1 at 0";
    }
}
