#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

class AnalogFilterPrototype;
class BinaryDataWriter;

// The engine of a spectral band: instead of moving the whole band's gain it compresses (or
// expands) per frequency. The band's detection range is cut into overlapping sub-bands on a log
// frequency axis; each sub-band's level comes from the input spectrum, runs through its own
// program-dependent attack and release, and the result moves the band's response bin by bin between
// its static response and its full-range response.
//
// The threshold follows the band's dynamic settings: in manual mode the band's threshold in dB; in
// auto mode the levels are measured against the programme's own slowly decaying peak, and a
// sub-band acts once it comes within kAutoThresholdDb of it. A sub-band's gain is the threshold
// over its level (a limiter above the threshold), never below the band's range.
//
// Threading: one thread at a time (the engine worker, which designs the kernels it shapes).
// Allocates only when the bin grid is set.
class SpectralAnalyzer {
public:
    static constexpr int32_t kMaxSubBands = 128;
    static constexpr float kAutoThresholdDb = -6.0f;
    static constexpr double kStartUpSeconds = 0.5;
    static constexpr double kEnvelopeSeconds = 10.0;

    struct Settings {
        // The band's attack (0..50) and release (0..70) values.
        float attack = 35.0f;
        float release = 50.0f;
        // The magnitude of the band's dynamic range, dB.
        float range = 0.0f;
        // Detection range, log2 Hz.
        float lowEdge = 4.321928f;
        float highEdge = 14.287712f;
        float density = 50.0f;
        // dB per octave around the middle of the detection range.
        float tilt = 0.0f;
        bool autoThreshold = false;
        float thresholdDb = -13.33f;

        bool operator==(const Settings&) const = default;
    };

    void configure(const Settings& settings, double sampleRate);
    // The band's static and full-range designs (frequencies in Hz); both must outlive their use.
    void setResponses(const AnalogFilterPrototype* staticDesign, const AnalogFilterPrototype* fullDesign);
    // The bins of the spectra this analyzer gathers and shapes: numBins bins spaced binHz apart.
    void setBinGrid(int32_t numBins, double binHz);

    void markForReset() { resetPending = true; }
    // One analysis frame: amplitudes per bin (a sine of amplitude A reads A at its bin).
    void gatherSpectrum(const float* magnitudes, int32_t numBins);
    // Moves the envelopes and gain reductions on by the samples since the last update.
    void update(int64_t elapsedSamples);
    // Squared magnitudes: staticPower[i] becomes the power the gains give between it and
    // fullPower[i], never past either.
    void applyToMagnitudes(int32_t first, double* staticPower, const float* fullPower, int32_t count) const;
    // What the display reads: position, edges, envelope, range, gain reductions, sub-band starts.
    void writeRecord(BinaryDataWriter& writer, int64_t position) const;

    int32_t getSubBandCount() const { return count; }
    float getStart() const { return start; }
    float getStep() const { return step; }
    float getGainReduction(int32_t subBand) const { return gainReduction[static_cast<size_t>(subBand)]; }
    float getWeight(int32_t subBand);
    float getBinGain(int32_t bin) const { return binGain[static_cast<size_t>(bin)]; }
    float getEnvelopeDb() const { return envelopeDb; }
    const std::vector<bool>& getSubBandStarts() const { return subBandStarts; }

private:
    void regrid();
    void retime();
    void refreshWeights();
    void refreshMask();
    // |dA - dB| / range at f (Hz), at most 1.
    float shapeWeightAt(double hz) const;
    double thresholdLevel() const;

    Settings settings;
    double sampleRate = 48000.0;
    bool configured = false;
    int32_t count = 4;
    float start = 4.321928f;
    float end = 14.287712f;
    float step = 1.0f;
    std::array<float, kMaxSubBands> level{};
    std::array<float, kMaxSubBands> gainReduction{};
    std::array<float, kMaxSubBands> weight{};
    std::array<float, kMaxSubBands> attackSeconds{};
    std::array<float, kMaxSubBands> releaseSeconds{};
    std::vector<float> binLog2;
    std::vector<float> binGain;
    std::vector<float> binMask;
    std::vector<bool> subBandStarts;
    double binHz = 1.0;
    double slowEnvelope = 0.0;
    double fastEnvelope = 0.0;
    float envelopeDb = -180.0f;
    int64_t startUpCountdown = 0;
    const AnalogFilterPrototype* staticDesign = nullptr;
    const AnalogFilterPrototype* fullDesign = nullptr;
    bool resetPending = true;
    bool weightsValid = false;
    bool maskValid = false;
};
