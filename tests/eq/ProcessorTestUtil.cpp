#include "ProcessorTestUtil.h"

#include "eq/BandRouting.h"
#include "eq/EngineWorker.h"
#include "foundation/BinaryStreams.h"
#include "plugin/eq/ParameterMappings.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>
#include <thread>

namespace processor_test {

Harness::Harness(int32_t layout, float rate, int32_t maxBlock)
    : instance(std::make_unique<OndrelProcessor>(layout, maxBlock, rate)) {
    for (int32_t i = 0; i < instance->getNumParameters(); ++i)
        indexes[instance->getParameter(i)->getName()] = i;
    instance->setProcessing(true);
}

int32_t Harness::index(const std::string& name) const {
    const auto found = indexes.find(name);
    if (found == indexes.end())
        throw std::invalid_argument("no parameter " + name);
    return found->second;
}

void Harness::set(const std::string& name, float plain) {
    instance->setParameter(index(name), plain, true);
}

void Harness::setBand(int32_t band, const std::string& suffix, float plain) {
    set("Band " + std::to_string(band) + suffix, plain);
}

void Harness::addBand(int32_t band, FilterShape shape, double hz, float gainDb, float q) {
    setBand(band, " Shape", static_cast<float>(shape));
    setBand(band, " Frequency", static_cast<float>(std::log2(hz)));
    setBand(band, " Gain", gainDb);
    setBand(band, " Q", static_cast<float>(normalizedFromQ(q)));
    setBand(band, " Used", 1.0f);
}

Signals Harness::process(const Signals& inputs, int32_t blockSize, const Signals* sideChain) {
    const auto channels = static_cast<size_t>(numChannels());
    size_t length = 0;
    for (const Signal& input : inputs)
        length = std::max(length, input.size());
    Signals in(channels, Signal(length, 0.0f));
    Signals side(channels, Signal(length, 0.0f));
    for (size_t c = 0; c < std::min(channels, inputs.size()); ++c)
        std::copy(inputs[c].begin(), inputs[c].end(), in[c].begin());
    if (sideChain != nullptr)
        for (size_t c = 0; c < std::min(channels, sideChain->size()); ++c)
            std::copy((*sideChain)[c].begin(), (*sideChain)[c].end(), side[c].begin());
    Signals out(channels, Signal(length, 0.0f));
    std::vector<const float*> inPointers(channels);
    std::vector<const float*> sidePointers(channels);
    std::vector<float*> outPointers(channels);
    size_t done = 0;
    while (done < length) {
        int32_t size = blockSize;
        if (blockSize < 0) {
            randomState = randomState * 1664525u + 1013904223u;
            size = 1 + static_cast<int32_t>((randomState >> 8) % static_cast<uint32_t>(-blockSize));
        }
        const auto count = std::min(static_cast<size_t>(size), length - done);
        for (size_t c = 0; c < channels; ++c) {
            inPointers[c] = in[c].data() + done;
            sidePointers[c] = side[c].data() + done;
            outPointers[c] = out[c].data() + done;
        }
        uint32_t flags = 0;
        instance->process(inPointers.data(), sideChain != nullptr ? sidePointers.data() : nullptr,
                          outPointers.data(), static_cast<int32_t>(channels), static_cast<int32_t>(count),
                          flags);
        done += count;
    }
    return out;
}

void Harness::settle(int32_t numSamples) {
    process(Signals(static_cast<size_t>(numChannels()), Signal(static_cast<size_t>(numSamples), 0.0f)));
}

bool Harness::waitUntilSettled() {
    // Generous: a sanitizer build designs the largest kernels many times slower.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (std::chrono::steady_clock::now() < deadline) {
        settle(64);
        const bool handled = instance->getWorker().getHandledSerial() == instance->getSettingsSerial();
        if (!instance->isSwitchPending() && handled && !instance->hasKernelWorkPending()) {
            // Let kernels published after the last settings change land and fade in.
            settle(2 * instance->getLatency() + static_cast<int32_t>(instance->getSampleRate() * 0.1f));
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

Signals Harness::impulseResponse(int32_t inputChannel, int32_t length) {
    Signals inputs(static_cast<size_t>(numChannels()), Signal(static_cast<size_t>(length), 0.0f));
    inputs[static_cast<size_t>(inputChannel)][0] = 1.0f;
    return process(inputs);
}

RealTimeReadings readRealTimeData(OndrelProcessor& processor, uint32_t numBins) {
    BinaryMemoryWriter writer;
    processor.writeRealTimeData(writer);
    BinaryMemoryReader reader(writer.bytes());
    RealTimeReadings readings;
    readings.tempo = reader.readFloat();
    readings.bands.resize(std::min(reader.readUInt32(), static_cast<uint32_t>(kNumBands)));
    for (RealTimeReadings::Band& band : readings.bands) {
        band.index = static_cast<int32_t>(reader.readUInt32());
        band.delayMs = reader.readFloat();
        reader.readUInt32();
        reader.readUInt32(); // position
        for (int i = 0; i < 4; ++i)
            reader.readFloat();
        band.subBands = reader.readUInt32();
        for (uint32_t k = 0; k < band.subBands; ++k)
            band.largestReduction = std::max(band.largestReduction, reader.readFloat());
        for (uint32_t word = 0; band.subBands > 0 && word * 32 < numBins; ++word)
            reader.readUInt32();
    }
    uint8_t beyond = 0;
    readings.complete = reader.good() && !reader.readRaw(&beyond, 1);
    return readings;
}

std::complex<double> responseAt(const Signal& impulseResponse, double hz, double rate, int32_t delay) {
    const double w = 2.0 * std::numbers::pi * hz / rate;
    std::complex<double> sum = 0.0;
    for (size_t n = 0; n < impulseResponse.size(); ++n)
        sum += static_cast<double>(impulseResponse[n]) *
               std::polar(1.0, -w * (static_cast<double>(n) - static_cast<double>(delay)));
    return sum;
}

double responseDb(const Signal& impulseResponse, double hz, double rate, int32_t delay) {
    return 20.0 * std::log10(std::max(std::abs(responseAt(impulseResponse, hz, rate, delay)), 1e-15));
}

double rms(const Signal& signal, size_t from, size_t to) {
    double sum = 0.0;
    for (size_t i = from; i < to; ++i)
        sum += static_cast<double>(signal[i]) * signal[i];
    return std::sqrt(sum / static_cast<double>(std::max<size_t>(to - from, 1)));
}

Signal sine(size_t length, double hz, double rate, double amplitude) {
    Signal s(length);
    for (size_t i = 0; i < length; ++i)
        s[i] = static_cast<float>(amplitude *
                                  std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / rate));
    return s;
}

Signal whiteNoise(size_t length, uint32_t seed, double amplitude) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-amplitude, amplitude);
    Signal s(length);
    for (float& x : s)
        x = static_cast<float>(uniform(random));
    return s;
}

} // namespace processor_test
