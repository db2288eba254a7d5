#pragma once

#include "eq/OndrelProcessor.h"
#include "plugin/PluginParameter.h"

#include <complex>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace processor_test {

using Signal = std::vector<float>;
using Signals = std::vector<Signal>;

// An OndrelProcessor driven the way a host drives it: parameters by host name through the frame's
// queue, audio in host blocks of a chosen size.
class Harness {
public:
    explicit Harness(int32_t layout = 1, float rate = 48000.0f, int32_t maxBlock = 512);

    OndrelProcessor& processor() { return *instance; }
    int32_t numChannels() const { return instance->getNumChannels(); }
    int32_t index(const std::string& name) const;
    void set(const std::string& name, float plain);
    // band counts from 1, as in the host names ("Band 1 Gain").
    void setBand(int32_t band, const std::string& suffix, float plain);
    // A used band with shape, frequency (Hz), gain (dB) and Q.
    void addBand(int32_t band, FilterShape shape, double hz, float gainDb, float q = 1.0f);

    // Runs every channel through in blocks of blockSize (a negative size picks random sizes up to
    // -blockSize). Missing inputs are silence.
    Signals process(const Signals& inputs, int32_t blockSize, const Signals* sideChain = nullptr);
    Signals process(const Signals& inputs) { return process(inputs, 256); }
    // Silence through every channel for the given number of samples (lets settings settle).
    void settle(int32_t numSamples);
    // Processes silence until the processor runs the settings given so far (a new mode waits for
    // the worker's convolvers) and the worker has seen them; false on a time-out.
    bool waitUntilSettled();
    // The impulse response at every output for a unit impulse on one input channel.
    Signals impulseResponse(int32_t inputChannel, int32_t length);

private:
    std::unique_ptr<OndrelProcessor> instance;
    std::map<std::string, int32_t> indexes;
    uint32_t randomState = 12345;
};

// The product's part of the processor's real-time data.
struct RealTimeReadings {
    // One spectral band: its index, how far its readings lead, its sub-band count and the largest
    // reduction of any sub-band (0 none, 1 all the way to the range).
    struct Band {
        int32_t index = -1;
        float delayMs = 0.0f;
        uint32_t subBands = 0;
        float largestReduction = 0.0f;
    };
    float tempo = 0.0f;
    std::vector<Band> bands;
    // Every byte was read, none was missing.
    bool complete = false;
};
// numBins: the bins of the spectral analysis frame (the sub-band starts have one bit per bin).
RealTimeReadings readRealTimeData(OndrelProcessor& processor, uint32_t numBins);

// H(f) of an impulse response, with the first `delay` samples treated as latency.
std::complex<double> responseAt(const Signal& impulseResponse, double hz, double rate, int32_t delay = 0);
double responseDb(const Signal& impulseResponse, double hz, double rate, int32_t delay = 0);
double rms(const Signal& signal, size_t from, size_t to);
Signal sine(size_t length, double hz, double rate, double amplitude = 0.5);
Signal whiteNoise(size_t length, uint32_t seed, double amplitude = 0.5);

} // namespace processor_test
