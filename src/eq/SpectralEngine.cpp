#include "eq/SpectralEngine.h"

#include "eq/FFTWindow.h"
#include "foundation/BinaryStreams.h"
#include "plugin/eq/ParameterMappings.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// One input's analysis: the last frame of samples and the frame's amplitude spectrum.
struct SpectralEngine::ChannelAnalysis {
    ChannelAnalysis(const FFTPlan<float>& plan, int32_t length)
        : stepper(plan), frame(static_cast<size_t>(length), 0.0f), windowed(length), spectrum(length),
          magnitudes(static_cast<size_t>(length / 2 + 1), 0.0f) {
        stepper.prepare();
    }

    FFTStepper<float> stepper;
    std::vector<float> frame;
    AlignedBuffer<float> windowed;
    AlignedBuffer<float> spectrum;
    std::vector<float> magnitudes;
    std::vector<float> hop;
};

SpectralEngine::SpectralEngine() = default;
SpectralEngine::~SpectralEngine() = default;

void SpectralEngine::setInputs(std::vector<wave::SampleRing*> mainInputs,
                               std::vector<wave::SampleRing*> sideChains) {
    mainRings = std::move(mainInputs);
    sideRings = std::move(sideChains);
    frameLength = 0;
}

const SpectralAnalyzer* SpectralEngine::analyzerFor(int32_t band) const {
    return band >= 0 && band < kNumBands && spectral[static_cast<size_t>(band)]
               ? &analyzers[static_cast<size_t>(band)]
               : nullptr;
}

void SpectralEngine::prepare(int32_t length, double rate) {
    frameLength = length;
    sampleRate = rate;
    plan = std::make_unique<FFTPlan<float>>(length);
    std::vector<double> values(static_cast<size_t>(length));
    // A periodic Hann window; a sine of amplitude A then reads 2 |X| / sum(w) = A at its bin.
    const double sum = FFTWindow::fill(FFTWindow::kHann, 0.0, values.data(), length, length + 1);
    window.assign(values.begin(), values.end());
    windowNorm = 2.0 / sum;
    const auto make = [&](const std::vector<wave::SampleRing*>& rings, auto& analyses) {
        analyses.clear();
        for (size_t c = 0; c < rings.size(); ++c)
            analyses.push_back(std::make_unique<ChannelAnalysis>(*plan, length));
    };
    make(mainRings, mainAnalysis);
    make(sideRings, sideAnalysis);
    for (SpectralAnalyzer& analyzer : analyzers)
        analyzer.setBinGrid(length / 2 + 1, rate / length);
}

void SpectralEngine::configureBands(const EngineSnapshot& snapshot) {
    const float scale = snapshot.gainScale;
    for (int32_t b = 0; b < kNumBands; ++b) {
        const auto index = static_cast<size_t>(b);
        const BandSettings& band = snapshot.bands[index];
        const bool wasSpectral = spectral[index];
        spectral[index] = isAnalysedSpectralBand(band, snapshot.resolution);
        if (!spectral[index])
            continue;
        const DetectorBand detector = detectorBandFor(band);
        SpectralAnalyzer::Settings settings;
        settings.attack = band.dynamicsAuto ? 25.0f : band.attack * 0.5f;
        settings.release = band.dynamicsAuto ? 35.0f : band.release * 0.7f;
        settings.range = std::fabs(band.dynamicRange * scale);
        settings.lowEdge = static_cast<float>(std::log2(detector.low));
        settings.highEdge = static_cast<float>(std::log2(detector.high));
        settings.density = band.spectralDensity;
        settings.tilt = band.spectralTilt ? 3.0f : 0.0f;
        settings.autoThreshold = band.dynamicsAuto;
        settings.thresholdDb = static_cast<float>(thresholdDbFromStored(band.threshold));
        SpectralAnalyzer& analyzer = analyzers[index];
        analyzer.configure(settings, snapshot.sampleRate);
        const EQBandSettings design = band.design(band.gain * scale);
        if (!wasSpectral || designed[index] != design) {
            designed[index] = design;
            designBand(staticDesigns[index], design);
            designBand(fullDesigns[index], band.design((band.gain + band.dynamicRange) * scale));
            analyzer.setResponses(&staticDesigns[index], &fullDesigns[index]);
        }
    }
}

bool SpectralEngine::follow(const EngineSnapshot& snapshot) {
    const bool anySpectral =
        std::any_of(snapshot.bands.begin(), snapshot.bands.end(), [&](const BandSettings& band) {
            return isAnalysedSpectralBand(band, snapshot.resolution);
        });
    active = anySpectral && snapshot.config.linearTaps > 0 && !mainRings.empty();
    if (!active) {
        spectral.fill(false);
        for (wave::SampleRing* ring : mainRings)
            ring->skipAll();
        for (wave::SampleRing* ring : sideRings)
            ring->skipAll();
        return false;
    }
    if (snapshot.config.linearTaps != frameLength || snapshot.sampleRate != sampleRate)
        prepare(snapshot.config.linearTaps, snapshot.sampleRate);
    configureBands(snapshot);
    bool moved = false;
    while (analyseHop(snapshot))
        moved = true;
    if (moved)
        publishRecords();
    return moved;
}

bool SpectralEngine::analyseHop(const EngineSnapshot& snapshot) {
    const int32_t hop = frameLength / 2;
    const auto channels =
        static_cast<size_t>(std::min<int32_t>(snapshot.numChannels, static_cast<int32_t>(mainRings.size())));
    for (size_t c = 0; c < channels; ++c)
        if (mainRings[c]->available() < hop)
            return false;
    const auto analyse = [&](wave::SampleRing& ring, ChannelAnalysis& analysis, bool wanted) {
        analysis.hop.resize(static_cast<size_t>(hop));
        const int32_t got = ring.read(analysis.hop.data(), hop);
        std::fill(analysis.hop.begin() + got, analysis.hop.end(), 0.0f);
        if (!wanted)
            return;
        std::move(analysis.frame.begin() + hop, analysis.frame.end(), analysis.frame.begin());
        std::copy(analysis.hop.begin(), analysis.hop.end(), analysis.frame.end() - hop);
        for (int32_t i = 0; i < frameLength; ++i) {
            const float x = analysis.frame[static_cast<size_t>(i)];
            // Non-finite input reads as silence, so it cannot poison the levels.
            analysis.windowed[i] = std::isfinite(x) ? x * window[static_cast<size_t>(i)] : 0.0f;
        }
        analysis.stepper.forward(analysis.windowed.getData(), analysis.spectrum.getData());
        const float* s = analysis.spectrum.getData();
        const auto norm = static_cast<float>(windowNorm);
        analysis.magnitudes[0] = std::fabs(s[0]) * norm * 0.5f;
        analysis.magnitudes[static_cast<size_t>(frameLength / 2)] = std::fabs(s[1]) * norm * 0.5f;
        for (int32_t k = 1; k < frameLength / 2; ++k)
            analysis.magnitudes[static_cast<size_t>(k)] = std::hypot(s[2 * k], s[2 * k + 1]) * norm;
    };
    const bool sideWanted =
        std::any_of(snapshot.bands.begin(), snapshot.bands.end(), [&](const BandSettings& band) {
            return band.externalSideChain && spectral[static_cast<size_t>(&band - snapshot.bands.data())];
        });
    for (size_t c = 0; c < channels; ++c) {
        analyse(*mainRings[c], *mainAnalysis[c], true);
        if (c < sideRings.size())
            analyse(*sideRings[c], *sideAnalysis[c], sideWanted);
    }
    for (int32_t b = 0; b < kNumBands; ++b) {
        const auto index = static_cast<size_t>(b);
        if (!spectral[index])
            continue;
        const BandSettings& band = snapshot.bands[index];
        SpectralAnalyzer& analyzer = analyzers[index];
        analyzer.markForReset();
        for (size_t c = 0; c < channels; ++c) {
            if (!bandAppliesToChannel(band, snapshot.channelFlags[c]))
                continue;
            const ChannelAnalysis& analysis =
                band.externalSideChain && c < sideAnalysis.size() ? *sideAnalysis[c] : *mainAnalysis[c];
            analyzer.gatherSpectrum(analysis.magnitudes.data(), frameLength / 2 + 1);
        }
        analyzer.update(hop);
        ++versions[index];
    }
    position += hop;
    return true;
}

void SpectralEngine::publishRecords() {
    for (int32_t b = 0; b < kNumBands; ++b) {
        const auto index = static_cast<size_t>(b);
        if (!spectral[index])
            continue;
        BinaryMemoryWriter writer;
        analyzers[index].writeRecord(writer, position);
        Record& record = records[index].writeSlot();
        record.size = static_cast<int32_t>(std::min<size_t>(writer.bytes().size(), kMaxRecordBytes));
        std::memcpy(record.bytes.data(), writer.bytes().data(), static_cast<size_t>(record.size));
        records[index].publish();
    }
}

void SpectralEngine::writeRecord(int32_t band, BinaryDataWriter& writer) {
    if (band < 0 || band >= kNumBands)
        return;
    auto& buffer = records[static_cast<size_t>(band)];
    buffer.take();
    const Record& record = buffer.readSlot();
    if (record.size > 0) {
        writer.writeRaw(record.bytes.data(), static_cast<size_t>(record.size));
        return;
    }
    // Nothing analysed yet: position 0, no sub-bands.
    for (int i = 0; i < 2; ++i)
        writer.writeUInt32(0);
    for (int i = 0; i < 4; ++i)
        writer.writeFloat(0.0f);
    writer.writeUInt32(0);
}
