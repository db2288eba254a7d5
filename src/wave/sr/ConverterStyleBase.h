#pragma once

#include "wave/Environment.h"
#include "wave/Producer.h"

#include <cmath>
#include <cstdint>
#include <memory>

namespace sr {

// Moves a stream between the base rate and factor times the base rate. Every converter takes n as
// the number of base-rate samples: an interpolator reads n and writes n * factor, a decimator reads
// n * factor and writes n. Input and output must not overlap.
//
// Threading: created off the audio thread (it allocates its state for the largest design its style
// can make); process, reset and isAtRest then run on the audio thread and never allocate.
class ConverterBase : public wave::Component {
public:
    ~ConverterBase() override = default;
    virtual void process(const float* input, float* output, int32_t n) = 0;
    // Clears the filter state, as after a break in the stream.
    virtual void reset() = 0;
    // The state holds nothing but zeros.
    virtual bool isAtRest() const = 0;
};

// Designs the filters of one kind of converter for the environment's sample rate and a factor, and
// makes converters that run them. The style follows the environment's rate: it redesigns when told
// the rate changed, and refresh redesigns at once if the rate moved since the last design (an owner
// that reads the latency in its own rate notification, which may come first, calls refresh before).
// Converters keep a pointer to their style and notice a new design by its serial number, so the
// style must outlive them; the environment must outlive the style.
//
// Threading: built, refreshed and notified under the frame's processing lock (a redesign allocates
// nothing, but it takes time); the queries may run on the audio thread.
class ConverterStyleBase : public wave::Component, public wave::SampleRateListener {
public:
    // Every converter processes at most this many base-rate samples in one pass.
    static constexpr int32_t kChunk = 64;

    ConverterStyleBase(wave::Environment& environment, int32_t requestedFactor);
    ~ConverterStyleBase() override;
    ConverterStyleBase(const ConverterStyleBase&) = delete;
    ConverterStyleBase& operator=(const ConverterStyleBase&) = delete;

    // The factor of the current design (1: the converters only copy).
    virtual int32_t getFactor() const = 0;
    // The delay, in base-rate samples, of an interpolator followed by a decimator of this style.
    virtual int32_t getLatency() const = 0;
    virtual std::unique_ptr<ConverterBase> createInterpolator() = 0;
    virtual std::unique_ptr<ConverterBase> createDecimator() = 0;
    // Redesigns if the environment's rate differs from the rate of the last design.
    virtual void refresh() = 0;
    void sampleRateChanged(float) override { refresh(); }

    // The factor asked for at construction: no design ever exceeds it.
    int32_t getMaximumFactor() const { return maximumFactor; }
    double getDesignRate() const { return designRate; }
    // Changes with every design; converters compare it to their own copy.
    uint32_t getDesignSerial() const { return designSerial; }

protected:
    wave::Environment& getEnvironment() const { return environment; }
    // Whether the environment's rate has moved away from the last design's.
    bool rateChanged() const;
    // Records that a design for the environment's current rate is in place.
    void designed();

private:
    wave::Environment& environment;
    int32_t maximumFactor;
    double designRate = 0.0;
    uint32_t designSerial = 0;
};

// Far below any signal (-400 dB), far above the denormal range: converters take input and state
// this small as zero, so that neither denormal input nor a decaying state makes denormal products.
inline constexpr float kTiny = 1e-20f;

inline float withoutTiny(float x) {
    return std::fabs(x) < kTiny ? 0.0f : x;
}

// Flushes tiny values to zero and reports whether every value is finite.
bool flushTiny(float* values, int32_t count);

} // namespace sr
