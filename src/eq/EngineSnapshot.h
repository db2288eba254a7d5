#pragma once

#include "eq/BandRouting.h"

#include <array>
#include <cstdint>

// Convolver banks: the one in use, and one to prepare a new setup in.
inline constexpr int32_t kKernelBanks = 2;

// What the background worker needs to know of the processor's state: the bands, how they are
// grouped, the global settings and the momentary gain changes of dynamic bands. The audio thread
// fills one and publishes it; the worker designs kernels and estimates loudness from it.
struct EngineSnapshot {
    static constexpr int32_t kMaxChannels = 16;

    BandSettingsArray bands{};
    StageAssignment stages{};
    // The convolvers these settings need.
    KernelConfig config{};
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
    // Dynamic bands act in kernels, so their gains change from block to block.
    bool followsGains = false;
    // The audio thread's sample position when the snapshot was taken.
    int64_t position = 0;
};
