#include "wave/FastLevel.h"

namespace wave {

void amplitudeToDb(float* data, int32_t numSamples) {
    for (int32_t i = 0; i < numSamples; ++i)
        data[i] = fastAmplitudeToDb(data[i]);
}

void dbToAmplitude(float* data, int32_t numSamples) {
    for (int32_t i = 0; i < numSamples; ++i)
        data[i] = fastDbToAmplitude(data[i]);
}

} // namespace wave
