#pragma once

#include "foundation/UpdatedObject.h"

#include <array>
#include <cstdint>
#include <string>

class BinaryDataReader;
class BinaryDataWriter;

// The process-wide MIDI learn map: which parameter (global index) each MIDI controller 0..127
// drives. Every change fires `changed` once per update, so every instance can tell its
// interface and its processor. Also holds the process-wide learn state: the parameter that the
// next controller moved in any instance is assigned to. User-interface thread only.
class ControllerMapping : public UpdatedObject {
public:
    static constexpr uint32_t kUnassigned = 0xFFFFFFFFu;
    static constexpr int32_t kNumControllers = 128;

    ControllerMapping();

    // kUnassigned for controllers outside 0..127.
    uint32_t getParameterForController(int32_t controller) const;
    // The lowest controller driving the parameter, or kUnassigned.
    uint32_t getControllerForParameter(uint32_t parameter) const;
    void assign(int32_t controller, uint32_t parameter);
    void clear(int32_t controller);

    // Binary form, the same in the file and in the message to the processor: a chunk header
    // "ZVCM" with value 1, then the 128 entries as little-endian uint32 in controller order.
    void write(BinaryDataWriter& writer) const;
    // False (and nothing changes) when the header is not "ZVCM" or the entries are cut short.
    bool read(BinaryDataReader& reader);

    // "MidiControllerMap.zvm" of the preferences folder; a missing file leaves the map as it is.
    static std::string filePath();
    bool loadFile(const std::string& path);
    // Written atomically; false when it could not be written.
    bool saveFile(const std::string& path) const;

    void startLearning(uint32_t parameter) { learnTarget = parameter; }
    void stopLearning() { learnTarget = kUnassigned; }
    bool isLearning() const { return learnTarget != kUnassigned; }
    uint32_t getLearnTarget() const { return learnTarget; }

    EmbeddedDeferredNotifyEvent changed{*this};

private:
    void setEntry(int32_t controller, uint32_t parameter);

    std::array<uint32_t, kNumControllers> entries;
    uint32_t learnTarget = kUnassigned;
};
