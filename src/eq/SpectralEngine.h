#pragma once

#include "eq/AnalogFilterPrototype.h"
#include "eq/EngineSnapshot.h"
#include "eq/FFTPlan.h"
#include "eq/FFTStepper.h"
#include "eq/SpectralAnalyzer.h"
#include "wave/SampleRing.h"
#include "wave/TripleBuffer.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class BinaryDataWriter;

// The spectral bands' side of the engine worker: analyses every channel's input (and side chain,
// when a band listens to it) in windowed frames as long as the linear kernel, at half-frame hops,
// feeds each frame to the analyzers of the spectral bands that act on that channel, and moves
// them on. The kernel builder then shapes those bands' responses with the analyzers.
//
// Threading: setInputs off the audio thread while nothing runs; follow on the worker thread; the
// records are read by the real-time polling thread (one writer, one reader per band).
class SpectralEngine {
public:
    static constexpr int32_t kMaxRecordBytes = 16384;

    // What the display gets of one spectral band: the serialised record, or nothing yet.
    struct Record {
        int32_t size = 0;
        std::array<uint8_t, kMaxRecordBytes> bytes{};
    };

    SpectralEngine();
    ~SpectralEngine();

    // Per channel, the rings the audio thread writes the main input and the side chain into.
    void setInputs(std::vector<wave::SampleRing*> mainInputs, std::vector<wave::SampleRing*> sideChains);

    // Analyses what arrived; true when the analyzers moved (the kernels of spectral bands must be
    // rebuilt).
    bool follow(const EngineSnapshot& snapshot);
    bool isActive() const { return active; }

    // The analyzer of a spectral band (null when the band is not spectral) and a count that
    // changes every time it moves.
    const SpectralAnalyzer* analyzerFor(int32_t band) const;
    uint64_t versionOf(int32_t band) const { return versions[static_cast<size_t>(band)]; }

    // Polling thread: the band's latest record, or an empty one.
    void writeRecord(int32_t band, BinaryDataWriter& writer);

private:
    struct ChannelAnalysis;

    void prepare(int32_t frameLength, double sampleRate);
    void configureBands(const EngineSnapshot& snapshot);
    bool analyseHop(const EngineSnapshot& snapshot);
    void publishRecords();

    std::vector<wave::SampleRing*> mainRings;
    std::vector<wave::SampleRing*> sideRings;
    std::vector<std::unique_ptr<ChannelAnalysis>> mainAnalysis;
    std::vector<std::unique_ptr<ChannelAnalysis>> sideAnalysis;
    std::unique_ptr<FFTPlan<float>> plan;
    std::vector<float> window;
    double windowNorm = 1.0;
    int32_t frameLength = 0;
    double sampleRate = 0.0;
    bool active = false;
    int64_t position = 0;

    std::array<SpectralAnalyzer, kNumBands> analyzers;
    std::array<bool, kNumBands> spectral{};
    std::array<uint64_t, kNumBands> versions{};
    std::array<std::optional<EQBandSettings>, kNumBands> designed;
    std::array<AnalogFilterPrototype, kNumBands> staticDesigns;
    std::array<AnalogFilterPrototype, kNumBands> fullDesigns;
    std::array<wave::TripleBuffer<Record>, kNumBands> records;
};
