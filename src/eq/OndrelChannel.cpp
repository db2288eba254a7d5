#include "eq/OndrelChannel.h"

#include "eq/Convolver.h"

OndrelProcessor::OndrelChannel::BandSlot::BandSlot(wave::Environment* environment)
    : filter(environment), detector(environment), compander(environment), gainMeter(environment),
      reductionMeter(environment) {
    compander.setInput(&detector);
    filter.setGainSource(&compander);
    // The band's " Slope" is continuous: fractional positions give fractional slopes.
    filter.getFilterA().flags.setValue(EQFilter::kFractionalSlopes);
    filter.getFilterB().flags.setValue(EQFilter::kFractionalSlopes);
    filter.filterEnabled.setValue(false);
    for (wave::LevelMeter* meter : {&gainMeter, &reductionMeter}) {
        meter->setInput(&compander);
        meter->levelDomain.setValue(wave::LevelMeter::kRaw);
        meter->displayInDb.setValue(false);
    }
    // Leaving bypass resets the graph: the band must not resume from what it heard before.
    filter.joinResets();
    detector.joinResets();
    compander.joinResets();
    gainMeter.setClampRange(-DynamicEQFilter::kGainLimitDb, DynamicEQFilter::kGainLimitDb);
    reductionMeter.setDirection(1);
    reductionMeter.setClampRange(-180.0f, 0.0f);
}

OndrelProcessor::OndrelChannel::OndrelChannel(OndrelProcessor& owner, uint32_t flags, int32_t maximumDelay)
    : GenericPluginProcessor::Channel(owner, flags), soloFilter(owner.getEnvironment()),
      character(owner.getEnvironment(), *characterStyleFor(Character::Subtle)),
      monitorMix(owner.getEnvironment(), maximumDelay), inputMeter(owner.getEnvironment()),
      outputMeter(owner.getEnvironment()), sideChainMeter(owner.getEnvironment()) {
    for (auto& slot : slots)
        slot = std::make_unique<BandSlot>(owner.getEnvironment());
    for (auto& stage : kernelStages)
        stage = std::make_unique<KernelStage>(owner.getEnvironment());
    // Built small here, where building graph objects is allowed; the engine worker sizes them.
    for (auto& bank : convolvers)
        for (auto& convolver : bank)
            convolver =
                std::make_unique<Convolver>(owner.getEnvironment(), 2, Convolver::kMinimumPartition, 0);
    soloFilter.joinResets();
    inputMeter.setInput(&getMainInput());
    sideChainMeter.setInput(&getSideChainInput());
    for (wave::LevelMeter* meter : {&inputMeter, &outputMeter, &sideChainMeter})
        meter->schedule(true);
}

void OndrelProcessor::OndrelChannel::setBandApplies(int32_t band, bool value) {
    applies[static_cast<size_t>(band)] = value;
    getSlot(band).filter.filterEnabled.setValue(value);
}
