#include "wave/ControllerMidiReceiver.h"

#include "foundation/BinaryStreams.h"
#include "plugin/ControllerMapping.h"
#include "plugin/PluginParameter.h"

ControllerMidiReceiver::ControllerMidiReceiver(GenericPluginProcessor& frame) : frame(frame) {
    for (auto& parameter : parameters)
        parameter.store(kUnassigned, std::memory_order_relaxed);
    decoder.setReceiver(0, this);
}

void ControllerMidiReceiver::receiveMidiEvent(const GenericPluginProcessor::MidiEvent& event) {
    decoder.decode(event.status, event.data1, event.data2);
}

bool ControllerMidiReceiver::readMapping(BinaryDataReader& reader) {
    ControllerMapping mapping;
    if (!mapping.read(reader))
        return false;
    for (int32_t c = 0; c < ControllerMapping::kNumControllers; ++c)
        parameters[static_cast<size_t>(c)].store(mapping.getParameterForController(c),
                                                 std::memory_order_relaxed);
    return true;
}

void ControllerMidiReceiver::writeMapping(BinaryDataWriter& writer) const {
    ControllerMapping mapping;
    for (int32_t c = 0; c < ControllerMapping::kNumControllers; ++c) {
        const uint32_t parameter = getParameterForController(c);
        if (parameter != kUnassigned)
            mapping.assign(c, parameter);
    }
    mapping.write(writer);
}

uint32_t ControllerMidiReceiver::getParameterForController(int32_t controller) const {
    if (controller < 0 || controller >= static_cast<int32_t>(parameters.size()))
        return kUnassigned;
    return parameters[static_cast<size_t>(controller)].load(std::memory_order_relaxed);
}

void ControllerMidiReceiver::controlChange(int32_t controller, int32_t, float value) {
    const uint32_t index = getParameterForController(controller);
    if (index == kUnassigned)
        return;
    const AbstractPluginParameter* parameter = frame.getParameter(static_cast<int32_t>(index));
    if (parameter != nullptr)
        frame.setParameter(static_cast<int32_t>(index), parameter->plainOfNormalized(value), false);
}

void ControllerMidiReceiver::programChange(int32_t, int32_t program) {
    // The model picks the preset; program numbers fit the report's eight bits.
    frame.reportPair(GenericPluginProcessor::kProgramChangeReport, program & 0x7F);
}
