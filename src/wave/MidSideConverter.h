#pragma once

#include "foundation/Property.h"
#include "wave/MultiProducer.h"

namespace wave {

// Turns a left/right pair into mid/side or back. Encoding gives mid = (a + b) / 2 and
// side = (b - a) / 2; decoding gives a - b and a + b, so that with mid and side as inputs the
// outputs are left and right again. The side's sign is part of that contract.
// Threading: built under the frame's processing lock, then audio thread only.
class MidSideConverter : public MultiProducer {
public:
    enum Conversion : int32_t { kPassThrough = 0, kEncode = 1, kDecode = 2 };

    explicit MidSideConverter(Environment* environment, Producer* firstInput = nullptr,
                              Producer* secondInput = nullptr)
        : MultiProducer(environment, 2), firstInput(firstInput), secondInput(secondInput) {}

    void processAll(float* const* outputs, int32_t numSamples) override;

    void setFirstInput(Producer* producer) { firstInput = producer; }
    void setSecondInput(Producer* producer) { secondInput = producer; }
    Producer* getFirstInput() const { return firstInput; }
    Producer* getSecondInput() const { return secondInput; }

    Property<Conversion> conversion{kPassThrough};

private:
    Producer* firstInput;
    Producer* secondInput;
};

} // namespace wave
