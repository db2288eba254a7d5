#include "plugin/eq/EQParameterSet.h"

#include "plugin/eq/BandHelpTexts.h"
#include "plugin/eq/ParameterMappings.h"

namespace {

constexpr const char* kDisabledEnabled = "Disabled,Enabled";
constexpr const char* kSpeakerItems =
    "All Speakers,All (excl. LFE),LFE,Center,L/R (Front),Lc/Rc (Front Center),Lss/Rss (Surround Side),Ls/Rs "
    "(Surround),Lsr/Rsr (Surround Rear),Cs or S (Center Surround),Lts/Rts (Top Surround),L/C/R (Front + "
    "Center),Lw/Rw (Wide),Ltf/Rtf (Top Surround Front),Ltr/Rtr (Top Surround Rear)";

const FloatPluginParameterUnit* frequencyUnit() {
    return &ExpFreqParameterUnit::instance();
}
const FloatPluginParameterUnit* dbUnit() {
    return &DBParameterUnit::instance();
}
const FloatPluginParameterUnit* percentUnit() {
    return &PercentParameterUnit::instance();
}
// Hosts show the Q itself (0.5 reads "1.000") and read typed Q values back; the stored value stays 0..1.
const FloatPluginParameterUnit* thresholdUnit() {
    static const DBParameterUnit unit(thresholdDbFromStored, storedFromThresholdDb);
    return &unit;
}
const FloatPluginParameterUnit* qUnit() {
    static const RatioParameterUnit unit(qFromNormalized, normalizedFromQ);
    return &unit;
}

// Menu groups of the shape items, by item index; items past the table share group 1.
constexpr std::array<int32_t, 11> kShapeItemGroups{3, 2, 1, 5, 4, 1, 1, 1, 1, 1, 6};

} // namespace

EQParameterSet::BandEnabledParameter::BandEnabledParameter(GenericParameterOwner& owner, std::string name,
                                                           std::string helpText)
    : IndexedPluginParameter<bool>(owner, std::move(name), kDisabledEnabled, 1, std::move(helpText)) {}

EQParameterSet::ShapeParameter::ShapeParameter(GenericParameterOwner& owner, std::string name,
                                               std::string helpText)
    : IndexedPluginParameter<FilterShape>(
          owner, std::move(name),
          "Bell,Low Shelf,Low Cut,High Shelf,High Cut,Notch,Band Pass,Tilt Shelf,Flat Tilt,All Pass",
          kShapeOfItem, 0, static_cast<int32_t>(FilterShape::Bell), std::move(helpText)) {}

int32_t EQParameterSet::ShapeParameter::getItemGroup(int32_t itemIndex) const {
    if (itemIndex < 0 || itemIndex >= static_cast<int32_t>(kShapeItemGroups.size()))
        return 1;
    return kShapeItemGroups[static_cast<size_t>(itemIndex)];
}

EQParameterSet::SpeakersParameter::SpeakersParameter(GenericParameterOwner& owner, std::string name,
                                                     std::string helpText)
    : IndexedPluginParameter<chl::SpeakerSet>(owner, std::move(name), kSpeakerItems, 1, std::move(helpText)) {
}

void EQParameterSet::SpeakersParameter::setValue(chl::SpeakerSet set) {
    const int32_t item = chl::itemForSpeakerSet(set);
    if (item >= 0)
        setPlain(static_cast<float>(item));
}

EQParameterSet::EQParameterSet(GenericParameterOwner& owner, uint32_t setNumber, std::string name_)
    : PluginParameterSet(owner, setNumber, std::move(name_)),
      used(*this, getName() + " Used", "Unused,Used", 0),
      enabled(*this, getName() + " Enabled", band_help::kEnabled),
      frequency(*this, getName() + " Frequency", kLog2Of10Hz, kLog2Of30kHz, kLog2Of1kHz, frequencyUnit(),
                band_help::kFrequency),
      gain(*this, getName() + " Gain", -30.0f, 30.0f, 0.0f, dbUnit(), band_help::kGain),
      q(*this, getName() + " Q", 0.0f, 1.0f, 0.5f, qUnit(), band_help::kQ),
      shape(*this, getName() + " Shape", band_help::kShape),
      slope(*this, getName() + " Slope", 0.0f, 10.0f, 2.0f, &SlopeParameterUnit::instance(),
            band_help::kSlope),
      stereoPlacement(*this, getName() + " Stereo Placement", "Left,Right,Stereo,Mid,Side", 2,
                      band_help::kStereoPlacement),
      speakers(*this, getName() + " Speakers", band_help::kSpeakers),
      dynamicRange(*this, getName() + " Dynamic Range", -30.0f, 30.0f, 0.0f, dbUnit(),
                   band_help::kDynamicRange),
      dynamicsEnabled(*this, getName() + " Dynamics Enabled", "Dynamics Disabled,Dynamics Enabled", 1,
                      band_help::kDynamicsEnabled),
      // The default 1 reads "Dynamics Manual" although the engine treats 1 as auto; saved
      // projects and presets depend on it.
      dynamicsAuto(*this, getName() + " Dynamics Auto", "Dynamics Auto,Dynamics Manual", 1,
                   band_help::kDynamicsAuto),
      threshold(*this, getName() + " Threshold", 0.0f, 1.0f, 0.6666667f, thresholdUnit(),
                band_help::kThreshold),
      attack(*this, getName() + " Attack", 0.0f, 100.0f, 50.0f, percentUnit(), band_help::kAttack),
      release(*this, getName() + " Release", 0.0f, 100.0f, 50.0f, percentUnit(), band_help::kRelease),
      externalSideChain(*this, getName() + " External Side Chain", "Off,On", 0,
                        band_help::kExternalSideChain),
      sideChainFiltering(*this, getName() + " Side Chain Filtering", "Band,Free", 0),
      sideChainLowFrequency(*this, getName() + " Side Chain Low Frequency", kLog2Of10Hz, kLog2Of20kHz,
                            kLog2Of10Hz, frequencyUnit(), band_help::kSideChainFrequencies),
      sideChainHighFrequency(*this, getName() + " Side Chain High Frequency", kLog2Of10Hz, kLog2Of20kHz,
                             kLog2Of20kHz, frequencyUnit(), band_help::kSideChainFrequencies),
      sideChainAudition(*this, getName() + " Side Chain Audition", kDisabledEnabled, 0,
                        band_help::kSideChainAudition),
      spectralEnabled(*this, getName() + " Spectral Enabled", kDisabledEnabled, 0,
                      band_help::kSpectralEnabled),
      spectralDensity(*this, getName() + " Spectral Density", 0.0f, 100.0f, 50.0f, nullptr,
                      band_help::kSpectralDensity),
      solo(*this, getName() + " Solo", kDisabledEnabled, 0, band_help::kSolo) {}

bool EQParameterSet::isActive() const {
    return used.getValue() && enabled.getValue();
}

bool EQParameterSet::isDynamic() const {
    return isActive() && dynamicsEnabled.getValue() && hasDynamicRange();
}

bool EQParameterSet::isSpectral() const {
    return used.getValue() && shapeHasGain() && hasDynamicRange() && spectralEnabled.getValue();
}

EQParameterSetArray::EQParameterSetArray(GenericParameterOwner& owner)
    : ParameterSetArray<EQParameterSet>(owner, kNumBands, "Band ") {}

EQParameterSetExtension::EQParameterSetExtension(GenericParameterOwner& owner, uint32_t setNumber,
                                                 std::string name_)
    : PluginParameterSet(owner, setNumber, std::move(name_)),
      spectralTilt(*this, getName() + " Spectral Tilt", kDisabledEnabled, 0, band_help::kSpectralTilt) {}

EQParameterSetExtensionArray::EQParameterSetExtensionArray(GenericParameterOwner& owner)
    : ParameterSetArray<EQParameterSetExtension>(owner, EQParameterSetArray::kNumBands, "Band ") {}

AnalyzerParameterSet::AnalyzerParameterSet(GenericParameterOwner& owner)
    : PluginParameterSet(owner, 0, "Analyzer"),
      showPreProcessing(*this, "Analyzer Show Pre-Processing", kDisabledEnabled, 1),
      showPostProcessing(*this, "Analyzer Show Post-Processing", kDisabledEnabled, 1),
      showExternalSpectrum(*this, "Analyzer Show External Spectrum", kDisabledEnabled, 0),
      externalSpectrum(*this, "Analyzer External Spectrum", -1, 65536, -1),
      range(*this, "Analyzer Range", "60 dB,90 dB,120 dB", 1),
      resolution(*this, "Analyzer Resolution", "Low,Medium,High,Maximum", 2),
      speed(*this, "Analyzer Speed", "Very Slow,Slow,Medium,Fast,Very Fast", 2),
      tilt(*this, "Analyzer Tilt", "0 dB/oct,1.5 dB/oct,3 dB/oct,4.5 dB/oct,6 dB/oct", 3),
      freeze(*this, "Analyzer Freeze", "Off,On", 0),
      showCollisions(*this, "Analyzer Show Collisions", kDisabledEnabled, 1),
      spectrumGrab(*this, "Spectrum Grab", kDisabledEnabled, 1) {}

StereoPanParameter::StereoPanParameter(GenericParameterOwner& owner, std::string name)
    : FloatPluginParameter(owner, std::move(name), -1.0f, 1.0f, 0.0f) {}
