#pragma once

#include "wave/WaveShaperCurves.h"

#include <cstdint>
#include <memory>

// A memoryless saturation curve on float samples. The base class is the generic per-sample form
// for every type code; the fast forms below run one curve function over a whole block in groups
// of four (see WaveShaperCurves.h for the room they need past n). create picks the fast form
// wherever one exists for the code and its parameters.
//
// b scales the negative half (1 is symmetric), p sets the knee (1 is the plain curve). level is an
// optional per-sample linear level in [0, 1): below it the signal passes unchanged, above it the
// excess is bent (null means 0 everywhere).
//
// The generic form works in double precision with the library's functions; it is the reference the
// fast forms are measured against.
//
// Threading: immutable once built; process may run on any thread, the audio thread included, and
// never allocates.
class WaveShaper {
public:
    class LinearLevelOscillator;

    enum Type : int32_t {
        kArcTan = 0,
        kExponential = 1,
        kDivAbs = 2,
        kHardClip = 3,
        kTanHyperbolic = 4,
        kAlgebraic = 5,
        kSine = 6,
        kPolynomeOrder2 = 7,
        kPolynomeOrder3 = 8,
        kPolynomeOrder5 = 9,
        kLogarithmic = 10,
        kTube = 11,
        kSoftKnee = 12,
        kRectify = 13,
    };

    // p and b outside [kMinimumParameter, kMaximumParameter] are brought into it; NaN counts as 1.
    static constexpr float kMinimumParameter = 0.1f;
    static constexpr float kMaximumParameter = 10.0f;

    WaveShaper(float b, float p, int32_t type);
    virtual void process(const float* input, const float* level, float* output, int32_t n) const;
    virtual ~WaveShaper() = default;
    WaveShaper(const WaveShaper&) = delete;
    WaveShaper& operator=(const WaveShaper&) = delete;

    static std::unique_ptr<WaveShaper> create(int32_t type, bool linearLevel, float p, float b);

    // One sample at level 0, run through process in a padded group of four.
    float processSample(float x) const;

    float getB() const { return b; }
    float getP() const { return p; }
    int32_t getType() const { return type; }

private:
    // The curve of the type code for e >= 0 (the tube law for the signed e; its magnitude comes back).
    double curve(double e, double sign) const;

    float b;
    float p;
    int32_t type;
};

using WaveShaperCurve = void (*)(const float*, float*, int32_t);
using WaveShaperCurveB = void (*)(const float*, float*, int32_t, float);
using WaveShaperCurvePB = void (*)(const float*, float*, int32_t, float, float);
using WaveShaperCurveLL = void (*)(const float*, const float*, float*, int32_t);

template <WaveShaperCurve f>
class WaveShaperVec final : public WaveShaper {
public:
    explicit WaveShaperVec(int32_t type) : WaveShaper(1.0f, 1.0f, type) {}
    void process(const float* input, const float*, float* output, int32_t n) const override {
        f(input, output, n);
    }
};

template <WaveShaperCurveB f>
class WaveShaperVecB final : public WaveShaper {
public:
    WaveShaperVecB(int32_t type, float b) : WaveShaper(b, 1.0f, type) {}
    void process(const float* input, const float*, float* output, int32_t n) const override {
        f(input, output, n, getB());
    }
};

template <WaveShaperCurvePB f>
class WaveShaperVecPB final : public WaveShaper {
public:
    WaveShaperVecPB(int32_t type, float p, float b) : WaveShaper(b, p, type) {}
    void process(const float* input, const float*, float* output, int32_t n) const override {
        f(input, output, n, getP(), getB());
    }
};

template <WaveShaperCurveLL f>
class WaveShaperVecLL final : public WaveShaper {
public:
    explicit WaveShaperVecLL(int32_t type) : WaveShaper(1.0f, 1.0f, type) {}
    void process(const float* input, const float* level, float* output, int32_t n) const override {
        f(input, level, output, n);
    }
};
