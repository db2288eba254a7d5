#pragma once

#include "eq/BandRouting.h"

#include <array>
#include <cstdint>

// What the background worker needs to know of the processor's state: the bands, how they are
// grouped, the global settings and the momentary gain changes of dynamic bands. The audio thread
// fills one and publishes it; the worker designs kernels and estimates loudness from it.
struct EngineSnapshot {
    static constexpr int32_t kMaxChannels = 16;

    BandSettingsArray bands{};
    StageAssignment stages{};
    ProcessingMode mode = ProcessingMode::ZeroLatency;
    ProcessingResolution resolution = ProcessingResolution::Medium;
    float gainScale = 1.0f;
    float sampleRate = 48000.0f;
    int32_t numChannels = 0;
    std::array<uint32_t, kMaxChannels> channelFlags{};
    // Per channel and band, the dynamic band's gain change in dB (0 at rest).
    std::array<std::array<float, kNumBands>, kMaxChannels> gainChanges{};
    // Counts changes of everything but the gain changes, so the worker can tell what moved.
    uint64_t settingsSerial = 0;
};
