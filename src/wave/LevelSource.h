#pragma once

#include <cstdint>

// A level that one thread measures and another displays, possibly from another instance.
// Threading: the queries run on the reading (user-interface) thread.
class LevelSource {
public:
    // What the display shows: the latest level, the held peak and the highest peak so far, in
    // the source's display unit (dB when it displays in dB).
    struct Info {
        float level = 0.0f;
        float peak = 0.0f;
        float maximumPeak = 0.0f;
    };

    // How the level is measured: the domain (1 amplitude, 2 power, others raw), whether it is
    // shown in dB, and the direction (1 when a lower value means more, as for gain reduction).
    struct Detection {
        int32_t domain = 1;
        bool inDb = true;
        int32_t direction = 0;
    };

    virtual ~LevelSource() = default;
    virtual Info getLevelInfo() = 0;
    virtual Detection getDetection() const = 0;
};
