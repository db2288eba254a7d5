#pragma once

#include "foundation/Property.h"
#include "wave/AlignedBuffer.h"

#include <complex>
#include <cstdint>
#include <vector>

// The response of some filter, in whatever form a consumer asks for it.
class FrequencyResponseSource {
public:
    virtual ~FrequencyResponseSource() = default;
};

// A response sampled on a frequency grid shared with other sources. Values are computed on demand;
// an index outside the grid is still answered (its frequency continues the grid's spacing).
// Sources are used by one thread at a time and are never called from the audio thread.
class DiscreteFrequencyResponseSource : public FrequencyResponseSource {
public:
    class Mapping;

    // The mapping must outlive the source; the source listens to it until destroyed.
    explicit DiscreteFrequencyResponseSource(Mapping& mapping);
    ~DiscreteFrequencyResponseSource() override;
    DiscreteFrequencyResponseSource(const DiscreteFrequencyResponseSource&) = delete;
    DiscreteFrequencyResponseSource& operator=(const DiscreteFrequencyResponseSource&) = delete;

    // The response at the grid point nearest to frequency (Hz).
    virtual std::complex<float> responseAtFrequency(float frequency);
    // Called when the mapping or the filter changed: drop whatever was derived from them.
    virtual void invalidate() {}
    virtual std::complex<float> responseAt(int32_t index);
    virtual void responses(int32_t first, int32_t count, std::complex<float>* out);
    virtual float squaredMagnitudeAt(int32_t index);
    virtual void squaredMagnitudes(int32_t first, int32_t count, float* out);

    Mapping& getMapping() const { return *mapping; }

private:
    Mapping* mapping;
};

// The grid: numSteps + 1 frequencies from start to end, evenly spaced in log or linear frequency.
// Every property change recomputes the grid, then tells the primary listener and after it the
// other listeners, the most recently added first.
class DiscreteFrequencyResponseSource::Mapping : public PropertyOwner {
public:
    Mapping(bool logarithmic, float startFrequency, float endFrequency, int32_t numSteps);
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    void setLogarithmic(bool value) { logarithmic.setValue(value); }
    void setStartFrequency(float hz) { startFrequency.setValue(hz); }
    void setEndFrequency(float hz) { endFrequency.setValue(hz); }
    void setNumSteps(int32_t steps) { numSteps.setValue(steps); }

    bool isLogarithmic() const { return logarithmic; }
    float getStartFrequency() const { return startFrequency; }
    float getEndFrequency() const { return endFrequency; }
    int32_t getNumSteps() const { return numSteps; }
    int32_t getNumPoints() const { return static_cast<int32_t>(frequencies.size()); }
    float getStep() const { return step; }
    const std::vector<float>& getFrequencies() const { return frequencies; }

    // Any index, also outside the grid.
    float frequencyAt(int32_t index) const;
    // The nearest index, halves away from zero; may lie outside the grid.
    int32_t indexForFrequency(float frequency) const;
    // The frequencies of a run: the grid itself when the run lies inside it, else filled into scratch.
    const float* frequenciesFor(int32_t first, int32_t count, std::vector<float>& scratch) const;
    bool contains(int32_t first, int32_t count) const {
        return first >= 0 && first + count <= getNumPoints();
    }

    void setPrimaryListener(DiscreteFrequencyResponseSource* listener) { primaryListener = listener; }
    void addListener(DiscreteFrequencyResponseSource* listener) { listeners.push_back(listener); }
    void removeListener(DiscreteFrequencyResponseSource* listener);

    void propertyChanged(AbstractProperty& property) override;

private:
    void update();

    Property<bool> logarithmic;
    Property<float> endFrequency;
    Property<float> startFrequency;
    Property<int32_t> numSteps;
    float step = 0.0f;
    std::vector<float> frequencies;
    DiscreteFrequencyResponseSource* primaryListener = nullptr;
    std::vector<DiscreteFrequencyResponseSource*> listeners;
};

// Caches complex responses in index order: index k is stored only once 0..k-1 are, so a consumer
// that asks for the first points computes only those.
class CachedDiscreteFrequencyResponseSource : public DiscreteFrequencyResponseSource {
public:
    explicit CachedDiscreteFrequencyResponseSource(Mapping& mapping);

    std::complex<float> responseAt(int32_t index) override;
    void invalidate() override;

    int32_t getValidCount() const { return validCount; }

protected:
    virtual std::complex<float> computeResponse(int32_t index) = 0;

private:
    std::vector<std::complex<float>> cache;
    int32_t validCount = 0;
};

// A magnitude-only source (zero phase): caches squared magnitudes and extends the cache in runs
// aligned to four entries, so the compute functions can work four values at a time.
class CachedDiscreteMagnitudeResponseSource : public DiscreteFrequencyResponseSource {
public:
    static constexpr int32_t kVectorWidth = 4;

    explicit CachedDiscreteMagnitudeResponseSource(Mapping& mapping);

    std::complex<float> responseAt(int32_t index) override;
    float squaredMagnitudeAt(int32_t index) override;
    void squaredMagnitudes(int32_t first, int32_t count, float* out) override;
    void invalidate() override;

    int32_t getValidCount() const { return validCount; }

protected:
    virtual float computeSquaredMagnitude(int32_t index) = 0;
    virtual void computeSquaredMagnitudes(int32_t first, int32_t count, float* out) = 0;

private:
    AlignedBuffer<float> cache;
    int32_t validCount = 0;
};
