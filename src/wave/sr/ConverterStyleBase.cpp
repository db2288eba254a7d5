#include "wave/sr/ConverterStyleBase.h"

#include "foundation/Numbers.h"

#include <cmath>

namespace sr {

ConverterStyleBase::ConverterStyleBase(wave::Environment& environment, int32_t requestedFactor)
    : environment(environment), maximumFactor(requestedFactor) {
    environment.addSampleRateListener(this);
}

ConverterStyleBase::~ConverterStyleBase() {
    environment.removeSampleRateListener(this);
}

bool ConverterStyleBase::rateChanged() const {
    return designSerial == 0 || std::fabs(environment.getSampleRate() - designRate) > kFloatEpsilon;
}

void ConverterStyleBase::designed() {
    designRate = environment.getSampleRate();
    ++designSerial;
}

bool flushTiny(float* values, int32_t count) {
    bool finite = true;
    for (int32_t i = 0; i < count; ++i) {
        finite = finite && std::isfinite(values[i]);
        values[i] = withoutTiny(values[i]);
    }
    return finite;
}

} // namespace sr
