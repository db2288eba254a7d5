#pragma once

#include "foundation/Property.h"
#include "wave/Producer.h"

#include <vector>

namespace wave {

// Combines a list of inputs, each scaled by its own gain block, into one block by one operation
// for the whole list. Inputs are taken in list order; the first connected input starts the result
// and every further one is folded into it. Inputs without a producer are skipped, an absent gain
// counts as unity, and with no connected input at all the output is the zero block.
// Threading: inputs are added while the graph is built; process runs on the audio thread only.
class Mixer : public Source {
public:
    // Per sample, acc is the result so far and x the next input times its gain.
    enum Operation : int32_t {
        kAdd = 0,              // acc + x
        kSubtract = 1,         // acc - x
        kMaximumMagnitude = 2, // max(acc, |in| * g), started from |in| * g
        kMultiply = 3,         // acc * x
        kLimitedRatio = 4,     // acc / |x| limited to 0..1, 0 where x is 0
        kRatio = 5,            // max(acc, 1e-9) / max(|x|, 1e-9)
        kHeldRatio = 6,        // acc / |x|, holding the last ratio while |x| is at most 1e-9
        kMaximum = 7,          // max(acc, x)
        kMinimum = 8,          // min(acc, x)
    };

    struct Input {
        Producer* producer = nullptr;
        Producer* gain = nullptr;
    };

    explicit Mixer(Environment* environment);

    // Returns the index of the new input.
    int32_t addInput(Producer* producer, Producer* gain = nullptr);
    void setInput(int32_t index, Producer* producer, Producer* gain = nullptr);
    int32_t getNumInputs() const { return static_cast<int32_t>(inputs.size()); }

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    // Forgets the held ratio.
    void reset() override { heldRatio = kInitialHeldRatio; }

    Property<Operation> operation{kAdd};

private:
    static constexpr float kInitialHeldRatio = 1.0f;

    const BasicBlock<float>& gainBlock(const Input& input, int32_t numSamples) const;
    // Both return whether any input was connected, and clear constant when any block varies.
    bool add(float* out, int32_t numSamples, bool& constant);
    bool fold(float* out, int32_t numSamples, bool& constant);
    void combine(Operation op, float* acc, const float* x, int32_t numSamples);

    std::vector<Input> inputs;
    ConstValueBlock unity;
    BasicBlock<float> scratch;
    float heldRatio = kInitialHeldRatio;
};

} // namespace wave
