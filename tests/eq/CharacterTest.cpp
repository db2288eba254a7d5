#include "ProcessorTestUtil.h"

#include "eq/CharacterStage.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <complex>
#include <numbers>
#include <thread>

namespace {

using namespace processor_test;

constexpr int32_t kStereo = 1;
constexpr float kRate = 48000.0f;

void setCharacter(Harness& h, Character character) {
    h.set("Character", static_cast<float>(character));
}

void setMode(Harness& h, ProcessingMode mode,
             ProcessingResolution resolution = ProcessingResolution::Medium) {
    h.set("Processing Mode", static_cast<float>(mode));
    h.set("Processing Resolution", static_cast<float>(resolution));
}

// The amplitude of the component with a whole number of cycles over signal[from, from + length).
double amplitudeAt(const Signal& signal, size_t from, size_t length, double cycles) {
    std::complex<double> sum = 0.0;
    for (size_t n = 0; n < length; ++n)
        sum += static_cast<double>(signal[from + n]) *
               std::polar(1.0, -2.0 * std::numbers::pi * cycles * static_cast<double>(n) /
                                   static_cast<double>(length));
    return 2.0 * std::abs(sum) / static_cast<double>(length);
}

double db(double ratio) {
    return 20.0 * std::log10(std::max(ratio, 1e-15));
}

TEST(CharacterTest, DriveAndEmphasisFollowTheLargestBoost) {
    const CharacterDrive subtle = characterDriveFor(Character::Subtle, 10.0f);
    EXPECT_FLOAT_EQ(subtle.drive, 0.15f) << "Subtle waits for more than 16 dB of boost";
    EXPECT_EQ(subtle.shelfGainDb, 4.5f);
    EXPECT_EQ(subtle.shelfHz, 200.0f);
    EXPECT_FLOAT_EQ(characterDriveFor(Character::Subtle, 30.0f).drive, 0.3f);
    EXPECT_FLOAT_EQ(characterDriveFor(Character::Subtle, 23.0f).drive, 0.15f * 0.25f + 0.15f);

    const CharacterDrive warm = characterDriveFor(Character::Warm, 30.0f);
    EXPECT_FLOAT_EQ(warm.drive, 0.5f);
    EXPECT_EQ(warm.shelfGainDb, 6.0f);
    EXPECT_EQ(warm.shelfHz, 250.0f);
    EXPECT_FLOAT_EQ(characterDriveFor(Character::Warm, 0.0f).drive, 0.1f);
    EXPECT_FLOAT_EQ(characterDriveFor(Character::Warm, 15.0f).drive, 0.2f);
    EXPECT_EQ(characterDriveFor(Character::Clean, 30.0f).drive, 0.0f);

    // Subtle's pre-gain at its resting drive: -12 + 32 * 0.15 = -7.2 dB.
    EXPECT_NEAR(characterStyleFor(Character::Subtle)->getPreScale().evaluate(0.15),
                std::pow(10.0, -7.2 / 20.0), 1e-6);
    EXPECT_EQ(characterStyleFor(Character::Clean), nullptr);
}

TEST(CharacterTest, LatencyIncludesTheConverterAndIsTheMeasuredDelay) {
    Harness h(kStereo, kRate, 256);
    h.addBand(1, FilterShape::Bell, 2000.0, 3.0f);
    setCharacter(h, Character::Warm);
    setMode(h, ProcessingMode::LinearPhase, ProcessingResolution::Low);
    ASSERT_TRUE(h.waitUntilSettled());
    const int32_t linearPhase = h.processor().getLatency();
    EXPECT_GT(linearPhase, 2048 + 1024) << "the linear-phase converter adds its delay";
    // A small impulse stays on the straight part of the curve: linear phase keeps it symmetric
    // around the latency.
    Signals in(2, Signal(16384, 0.0f));
    in[0][0] = 1e-3f;
    const Signals out = h.process(in);
    const auto peak = std::max_element(out[0].begin(), out[0].end(),
                                       [](float a, float b) { return std::fabs(a) < std::fabs(b); });
    EXPECT_EQ(peak - out[0].begin(), linearPhase);

    setCharacter(h, Character::Clean);
    ASSERT_TRUE(h.waitUntilSettled());
    EXPECT_EQ(h.processor().getLatency(), 2048 + 1024);

    // Zero Latency oversamples with the minimum-phase converter: a few samples of delay, which
    // low frequencies come out with.
    setMode(h, ProcessingMode::ZeroLatency);
    setCharacter(h, Character::Subtle);
    ASSERT_TRUE(h.waitUntilSettled());
    const int32_t minimumPhase = h.processor().getLatency();
    EXPECT_GT(minimumPhase, 0);
    EXPECT_LT(minimumPhase, 16);
    const Signal tone = sine(48000, 50.0, kRate, 0.01);
    const Signal toneOut = h.process({tone, tone})[0];
    double error = 0.0;
    for (size_t n = 24000; n < tone.size(); ++n)
        error = std::max(error, static_cast<double>(std::fabs(toneOut[n] - tone[n - minimumPhase])));
    EXPECT_LT(db(error / 0.01), -30.0) << "a 50 Hz tone lines up with the input at the latency";
}

TEST(CharacterTest, SubtleLeavesQuietSignalsAloneAndWarmAddsEvenHarmonics) {
    constexpr size_t kLength = 48000;
    constexpr size_t kWindow = 4800; // 100 cycles of 1 kHz
    const auto harmonics = [&](Character character, double amplitude) {
        Harness h(kStereo, kRate, 256);
        // A boost far above the tone drives the stage.
        h.addBand(1, FilterShape::Bell, 16000.0, 12.0f, 4.0f);
        setCharacter(h, character);
        EXPECT_TRUE(h.waitUntilSettled());
        const Signal tone = sine(kLength, 1000.0, kRate, amplitude);
        const Signal out = h.process({tone, tone})[0];
        std::array<double, 4> levels{};
        for (size_t k = 0; k < levels.size(); ++k)
            levels[k] = amplitudeAt(out, kLength - kWindow, kWindow, 100.0 * static_cast<double>(k + 1));
        return levels;
    };

    const auto quietSubtle = harmonics(Character::Subtle, 0.003);
    EXPECT_NEAR(db(quietSubtle[0] / 0.003), 0.0, 0.1) << "no level change well below the reference";
    EXPECT_LT(db(std::max(quietSubtle[1], quietSubtle[2]) / quietSubtle[0]), -80.0);

    const auto warm = harmonics(Character::Warm, 0.5);
    const double second = db(warm[1] / warm[0]);
    const double third = db(warm[2] / warm[0]);
    EXPECT_GT(second, -60.0) << "Warm is audible on a loud tone";
    EXPECT_GT(second, third + 10.0) << "mainly even harmonics";
}

TEST(CharacterTest, WarmAtFullDriveKeepsAliasesOfA15kHzToneBelow70dB) {
    // Every harmonic of 15 kHz lies above 24 kHz; what lands on the 3 kHz grid they fold onto,
    // other than the tone, is aliasing.
    constexpr size_t kWindow = 4800;
    for (const ProcessingMode mode : {ProcessingMode::ZeroLatency, ProcessingMode::LinearPhase}) {
        SCOPED_TRACE(static_cast<int>(mode));
        Harness h(kStereo, kRate, 256);
        // 30 dB of boost gives Warm its full drive; the band sits far below the tone.
        h.addBand(1, FilterShape::Bell, 40.0, 30.0f, 8.0f);
        setMode(h, mode, ProcessingResolution::Low);
        setCharacter(h, Character::Warm);
        ASSERT_TRUE(h.waitUntilSettled());
        const Signal tone = sine(4 * kWindow + 16384, 15000.0, kRate, std::pow(10.0, -10.0 / 20.0));
        const Signal out = h.process({tone, tone})[0];
        const size_t from = out.size() - kWindow;
        const double fundamental = amplitudeAt(out, from, kWindow, 1500.0);
        double worst = 0.0;
        for (double cycles = 300.0; cycles < 2400.0; cycles += 300.0)
            if (cycles != 1500.0)
                worst = std::max(worst, amplitudeAt(out, from, kWindow, cycles));
        EXPECT_LT(db(worst / fundamental), -70.0);
    }
}

TEST(CharacterTest, SwitchingCharacterOrModeWhilePlayingNeverClicks) {
    Harness h(kStereo, kRate, 256);
    h.addBand(1, FilterShape::Bell, 440.0, 6.0f, 1.0f);
    const Signal tone = sine(12000, 440.0, kRate, 0.25);
    const std::pair<Character, ProcessingMode> sequence[] = {
        {Character::Subtle, ProcessingMode::ZeroLatency}, {Character::Warm, ProcessingMode::ZeroLatency},
        {Character::Warm, ProcessingMode::LinearPhase},   {Character::Subtle, ProcessingMode::NaturalPhase},
        {Character::Clean, ProcessingMode::NaturalPhase}, {Character::Warm, ProcessingMode::ZeroLatency},
        {Character::Clean, ProcessingMode::ZeroLatency},
    };
    // The loudest step a 440 Hz tone boosted by 6 dB makes between samples, with room for the
    // harmonics the characters add.
    const double smoothStep = 2.0 * std::numbers::pi * 440.0 * 0.25 * 2.0 / kRate * 1.3;
    float previous = 0.0f;
    double worst = 0.0;
    for (const auto& [character, mode] : sequence) {
        setCharacter(h, character);
        setMode(h, mode);
        for (int round = 0; round < 30; ++round) {
            const Signals out = h.process({tone, tone});
            for (float x : out[0]) {
                worst = std::max(worst, static_cast<double>(std::fabs(x - previous)));
                previous = x;
            }
            if (!h.processor().isSwitchPending())
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        EXPECT_EQ(h.processor().getProcessingMode(), mode);
    }
    EXPECT_LT(worst, smoothStep);
}

} // namespace
