#include "eq/BandRouting.h"
#include "plugin/eq/ParameterMappings.h"
#include "wave/ChannelLayouts.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kLeft = 0x21E;
constexpr uint32_t kRight = 0x41E;
constexpr uint32_t kCentre = 0x900;
constexpr uint32_t kLfe = 0x1100;

BandSettings band(StereoPlacement placement, FilterShape shape = FilterShape::Bell) {
    BandSettings b;
    b.used = true;
    b.placement = placement;
    b.shape = shape;
    return b;
}

BandSettings spectral(StereoPlacement placement) {
    BandSettings b = band(placement);
    b.dynamicRange = -6.0f;
    b.spectralEnabled = true;
    return b;
}

StageAssignment assign(const BandSettingsArray& bands, ProcessingMode mode = ProcessingMode::ZeroLatency,
                       ProcessingResolution resolution = ProcessingResolution::Medium) {
    return assignStages(bands, mode, resolution, {});
}

int32_t latencyOf(const BandSettingsArray& bands, ProcessingMode mode, ProcessingResolution resolution,
                  double rate) {
    return computeLatency(assign(bands, mode, resolution), mode, resolution, rate, 0);
}

TEST(BandRoutingTest, PlacementPicksChannelsAndSpeakerSetsNarrowThem) {
    const BandSettings stereo = band(StereoPlacement::Stereo);
    const BandSettings mid = band(StereoPlacement::Mid);
    const BandSettings right = band(StereoPlacement::Right);
    EXPECT_TRUE(bandAppliesToChannel(stereo, kLeft) && bandAppliesToChannel(stereo, kRight) &&
                bandAppliesToChannel(stereo, kCentre));
    EXPECT_TRUE(bandAppliesToChannel(mid, kLeft));
    EXPECT_FALSE(bandAppliesToChannel(mid, kRight));
    EXPECT_FALSE(bandAppliesToChannel(mid, kCentre)) << "a centre channel is no member of a pair";
    EXPECT_TRUE(bandAppliesToChannel(right, kRight));
    EXPECT_FALSE(bandAppliesToChannel(right, kLeft));

    BandSettings lfeOnly = stereo;
    lfeOnly.speakers = chl::SpeakerSet::Lfe;
    EXPECT_TRUE(bandAppliesToChannel(lfeOnly, kLfe));
    EXPECT_FALSE(bandAppliesToChannel(lfeOnly, kLeft) || bandAppliesToChannel(lfeOnly, kCentre));
    EXPECT_FALSE(bandAppliesToChannel(stereo, kLfe)) << "the default set leaves the LFE alone";
}

TEST(BandRoutingTest, ActiveBandsIncludeSoloAndManualAudition) {
    BandSettings b = band(StereoPlacement::Stereo);
    b.enabled = false;
    EXPECT_FALSE(isBandActive(b));
    b.solo = true;
    EXPECT_TRUE(isBandActive(b));
    b.solo = false;
    b.sideChainAudition = true;
    EXPECT_FALSE(isBandActive(b)) << "auto mode ignores the audition switch";
    b.dynamicsAuto = false;
    EXPECT_TRUE(isBandActive(b));
    b.used = false;
    EXPECT_FALSE(isBandActive(b));
}

TEST(BandRoutingTest, DynamicAndSpectralNeedGainShapeAndRange) {
    BandSettings b = band(StereoPlacement::Stereo);
    EXPECT_FALSE(isDynamicBand(b));
    b.dynamicRange = 3.0f;
    EXPECT_TRUE(isDynamicBand(b));
    b.shape = FilterShape::LowCut;
    EXPECT_FALSE(isDynamicBand(b));
    b = spectral(StereoPlacement::Stereo);
    EXPECT_TRUE(isSpectralBand(b, ProcessingResolution::High));
    EXPECT_FALSE(isSpectralBand(b, ProcessingResolution::VeryHigh));
    EXPECT_FALSE(dynamicsAvailable(ProcessingMode::LinearPhase, ProcessingResolution::Maximum));
    EXPECT_TRUE(dynamicsAvailable(ProcessingMode::NaturalPhase, ProcessingResolution::Maximum));
}

TEST(BandRoutingTest, MaxBandBoostTakesActiveBoostsAndCutResonances) {
    BandSettingsArray bands{};
    EXPECT_EQ(maxBandBoost(bands), 0.0f);
    bands[0] = band(StereoPlacement::Stereo);
    bands[0].gain = -9.0f;
    EXPECT_EQ(maxBandBoost(bands), 0.0f) << "cuts never count below 0 dB";
    bands[1] = band(StereoPlacement::Left, FilterShape::LowShelf);
    bands[1].gain = 7.5f;
    bands[2] = band(StereoPlacement::Stereo);
    bands[2].gain = 12.0f;
    bands[2].enabled = false;
    EXPECT_EQ(maxBandBoost(bands), 7.5f) << "a disabled band does not drive";
    // A high cut with Q 2 (section Q sqrt 2) peaks by Q / sqrt(1 - 1/(4 Q^2)) = 1.5119, 3.59 dB.
    bands[3] = band(StereoPlacement::Stereo, FilterShape::HighCut);
    bands[3].q = static_cast<float>(normalizedFromQ(2.0));
    bands[1].gain = 2.0f;
    EXPECT_NEAR(maxBandBoost(bands), 3.590, 0.001);
    bands[3].q = static_cast<float>(normalizedFromQ(1.0));
    EXPECT_EQ(maxBandBoost(bands), 2.0f) << "a Butterworth cut has no peak";
}

TEST(BandRoutingTest, StereoBandsJoinAnExistingStageOfTheirKind) {
    BandSettingsArray bands{};
    bands[0] = band(StereoPlacement::Stereo);
    bands[1] = band(StereoPlacement::Mid);
    StageAssignment stages = assign(bands);
    EXPECT_EQ(stages.stageOfBand[0], StageType::MinimumMidSide)
        << "with only mid bands the stereo band goes M/S";
    EXPECT_EQ(stages.counts, (std::array<int32_t, 4>{0, 0, 2, 0}));

    bands[2] = band(StereoPlacement::Left);
    stages = assign(bands);
    EXPECT_EQ(stages.stageOfBand[0], StageType::MinimumLeftRight) << "any left band pulls it to L/R";
    EXPECT_EQ(stages.counts, (std::array<int32_t, 4>{2, 0, 1, 0}));

    stages = assign(bands, ProcessingMode::LinearPhase);
    EXPECT_EQ(stages.counts, (std::array<int32_t, 4>{0, 2, 0, 1})) << "Linear Phase makes every band linear";

    bands[3] = spectral(StereoPlacement::Side);
    stages = assign(bands, ProcessingMode::ZeroLatency, ProcessingResolution::Low);
    EXPECT_EQ(stages.stageOfBand[3], StageType::LinearMidSide);
    EXPECT_EQ(stages.counts, (std::array<int32_t, 4>{2, 0, 1, 1}));
}

TEST(BandRoutingTest, UnusedBandsKeepTheirStageAndCountNothing) {
    BandSettingsArray bands{};
    bands[4] = band(StereoPlacement::Side);
    const StageAssignment before = assign(bands);
    bands[4].used = false;
    const StageAssignment after =
        assignStages(bands, ProcessingMode::ZeroLatency, ProcessingResolution::Medium, before);
    EXPECT_EQ(after.stageOfBand[4], StageType::MinimumMidSide);
    EXPECT_EQ(after.counts, (std::array<int32_t, 4>{}));
}

TEST(BandRoutingTest, LatencyFollowsModeStagesResolutionAndRate) {
    const BandSettingsArray none{};
    for (double rate : {44100.0, 48000.0, 96000.0, 192000.0}) {
        const int32_t factor = rate > 100000.0 ? 4 : (rate > 50000.0 ? 2 : 1);
        EXPECT_EQ(latencyOf(none, ProcessingMode::ZeroLatency, ProcessingResolution::Medium, rate), 0);
        EXPECT_EQ(latencyOf(none, ProcessingMode::NaturalPhase, ProcessingResolution::Medium, rate), 320);
        for (int32_t r = 0; r < 5; ++r) {
            const auto resolution = static_cast<ProcessingResolution>(r);
            EXPECT_EQ(latencyOf(none, ProcessingMode::LinearPhase, resolution, rate),
                      factor * (kLinearKernelTaps[static_cast<size_t>(r)] / 2 + 1024))
                << rate << " Hz, resolution " << r;
        }
    }
    EXPECT_EQ(latencyOf(none, ProcessingMode::LinearPhase, ProcessingResolution::Medium, 48000.0), 5120);

    BandSettingsArray both{};
    both[0] = band(StereoPlacement::Left);
    both[1] = band(StereoPlacement::Mid);
    EXPECT_EQ(latencyOf(both, ProcessingMode::NaturalPhase, ProcessingResolution::Medium, 48000.0), 640);
    EXPECT_EQ(latencyOf(both, ProcessingMode::LinearPhase, ProcessingResolution::Medium, 48000.0), 2 * 5120);
    EXPECT_EQ(latencyOf(both, ProcessingMode::ZeroLatency, ProcessingResolution::Medium, 48000.0), 0);
}

TEST(BandRoutingTest, ASpectralBandGivesZeroLatencyALinearStageOnlyWhereSpectralExists) {
    BandSettingsArray bands{};
    bands[0] = spectral(StereoPlacement::Stereo);
    for (int32_t r = 0; r < 3; ++r) {
        const auto resolution = static_cast<ProcessingResolution>(r);
        EXPECT_EQ(latencyOf(bands, ProcessingMode::ZeroLatency, resolution, 48000.0),
                  kLinearKernelTaps[static_cast<size_t>(r)] / 2 + 1024);
        EXPECT_EQ(latencyOf(bands, ProcessingMode::ZeroLatency, resolution, 96000.0),
                  2 * (kLinearKernelTaps[static_cast<size_t>(r)] / 2 + 1024));
    }
    EXPECT_EQ(latencyOf(bands, ProcessingMode::ZeroLatency, ProcessingResolution::VeryHigh, 48000.0), 0);
    EXPECT_EQ(latencyOf(bands, ProcessingMode::ZeroLatency, ProcessingResolution::Maximum, 48000.0), 0);
    EXPECT_EQ(latencyOf(bands, ProcessingMode::NaturalPhase, ProcessingResolution::Low, 48000.0), 2048 + 1024)
        << "only the linear stage: no minimum-phase band, no correction kernel";
    EXPECT_GE(maximumLatency(192000.0, 0),
              latencyOf(bands, ProcessingMode::LinearPhase, ProcessingResolution::Maximum, 192000.0));
}

} // namespace
