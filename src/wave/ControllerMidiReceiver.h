#pragma once

#include "plugin/MidiDecoder.h"
#include "wave/GenericPluginProcessor.h"

#include <array>
#include <atomic>
#include <cstdint>

class BinaryDataReader;
class BinaryDataWriter;

// The processor's side of MIDI control: decodes the frame's MIDI events, drives the parameters
// that the learned controller map assigns (as changes of the processor's own, which the host
// records), and reports program changes to the plug-in model.
//
// Threading: events arrive on the audio thread; the map is replaced from any one other thread
// (each entry is an atomic, so a reader sees every controller either before or after).
class ControllerMidiReceiver : public GenericPluginProcessor::MidiReceiver,
                               private AbstractMusicEventReceiver {
public:
    static constexpr uint32_t kUnassigned = 0xFFFFFFFFu;

    explicit ControllerMidiReceiver(GenericPluginProcessor& frame);

    void receiveMidiEvent(const GenericPluginProcessor::MidiEvent& event) override;

    // The controller map in its binary form ("ZVCM").
    bool readMapping(BinaryDataReader& reader);
    void writeMapping(BinaryDataWriter& writer) const;
    uint32_t getParameterForController(int32_t controller) const;

private:
    void controlChange(int32_t controller, int32_t channel, float value) override;
    void programChange(int32_t bank, int32_t program) override;

    GenericPluginProcessor& frame;
    MidiDecoder decoder;
    std::array<std::atomic<uint32_t>, 128> parameters;
};
