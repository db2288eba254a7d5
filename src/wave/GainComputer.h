#pragma once

namespace wave {

// The static curve shared by every compressor-style block: how many dB of gain change a detection
// level calls for. Below the knee nothing happens, inside it the change rises quadratically (so a
// block starts to act a little below its threshold), above it linearly with slope 1 - 1/ratio,
// and the change never exceeds the limit.
struct GainComputer {
    static constexpr float kDefaultKneeDb = 6.0f;
    // Narrower knees are treated as hard; the quadratic would divide by almost nothing.
    static constexpr float kHardKneeLimitDb = 1e-3f;
    // Ratios from here on mean infinity (a limiter).
    static constexpr float kInfiniteRatio = 99.9999f;

    static float slopeForRatio(float ratio) { return ratio < kInfiniteRatio ? 1.0f - 1.0f / ratio : 1.0f; }

    // Gain change in dB (>= 0) for a level and threshold in dB, knee width in dB, ratio and limit.
    static float gainChangeDb(float levelDb, float thresholdDb, float kneeDb, float ratio, float limitDb) {
        const float over = overshootDb(levelDb - thresholdDb, kneeDb);
        const float change = over * slopeForRatio(ratio);
        return change > 0.0f ? (change < limitDb ? change : limitDb) : 0.0f;
    }

    // How far a level lies above the threshold, with the soft knee rounding the corner.
    static float overshootDb(float distanceDb, float kneeDb) {
        const float halfKnee = kneeDb * 0.5f;
        if (kneeDb <= kHardKneeLimitDb || distanceDb > halfKnee || distanceDb < -halfKnee)
            return distanceDb;
        const float intoKnee = distanceDb + halfKnee;
        return intoKnee * intoKnee / (2.0f * kneeDb);
    }
};

} // namespace wave
