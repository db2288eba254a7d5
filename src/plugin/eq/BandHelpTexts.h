#pragma once

// Hint texts of the band controls, attached to the band parameters they describe.

namespace band_help {

inline constexpr const char* kEnabled =
    "The Bypass button lets you easily bypass the selected EQ bands using soft bypassing.\n\nTip: You can "
    "also bypass an EQ band by Option-clicking it in the display. While an EQ band is bypassed, it is dimmed "
    "in the display and the bypass button is highlighted with a red color.";
inline constexpr const char* kFrequency =
    "The Frequency parameter sets the center frequency of the currently selected bands. Of course, you can "
    "also easily change the frequency of one or more bands by dragging curves horizontally in the "
    "display.\n\nTip: You can double-click all knobs to type a value directly. You can enter frequencies in "
    "various ways, like '120' or '2k', but also as musical notes, like 'C4' or 'A#5 + 20'.";
inline constexpr const char* kGain =
    "The Gain parameter controls the amount of gain that the currently selected bands add to or remove from "
    "the sound at their center frequencies. Of course, you can also easily change the gain of one or more "
    "bands by dragging curves vertically in the display.\n\nTip: You can double-click all knobs to type a "
    "value directly.\n\nNote that the Gain parameter is only used by the Bell and Shelving filter types.";
inline constexpr const char* kQ =
    "The Q parameter lets you control the bandwidth of the currently selected EQ bands.\n\nOf course, you "
    "can also control the Q of one or more bands by dragging a curve peak vertically in the display while "
    "holding down the Cmd key, or using the mouse wheel.\n\nNote: the Q parameter is not used for filters "
    "with a 6dB/oct slope.";
inline constexpr const char* kShape =
    "The Shape button selects the filter shape for the selected EQ bands. The Bell shape is the classic "
    "parametric EQ shape and probably the most versatile.\n\nThe Shelf shapes let you boost or attenuate low "
    "or high frequencies, while the Cut shapes remove low or high frequencies. With the Notch or Band-Pass "
    "shapes, you can cut or isolate a specific frequency range.\n\nUsing the Tilt Shelf or Flat Tilt filter, "
    "you can tilt the spectrum around a certain frequency, attenuating on one side, while boosting the other "
    "side.\n\nAll Pass is useful for changing the phase response only, to adjust the phase relationship "
    "between tracks.";
inline constexpr const char* kSlope =
    "The Slope button opens a menu to set the steepness of the current filter, possibly ranging from 0 "
    "dB/octave to 96 dB/octave, and can be set to any fractional slope value in between. Low Cut and High "
    "Cut filters also offer a 'Brickwall' slope, which is extremely steep, while still minimizing phase "
    "distortion.\n\nClick a fixed slope value directly in the menu, or drag the slider to set the slope to "
    "any fractional value in between.";
inline constexpr const char* kStereoPlacement =
    "The Stereo Placement button selects which channels are affected by the currently selected bands. By "
    "default, this is set to Stereo (affecting both channels), but you can choose to adjust only the Left, "
    "Right, Mid or Side channel.\n\nSee 'Stereo options' in the help file for more information.";
inline constexpr const char* kSpeakers =
    "Click a speaker row to select a speaker or speaker pair that will be affected by the selected EQ bands.";
inline constexpr const char* kDynamicRange =
    "The Dynamic Range ring enables and controls the dynamic behavior of the EQ band with a negative "
    "(compression) or positive (expansion) range. To make a band dynamic, simply drag the dynamic range ring "
    "upwards or downwards.\n\nOnce a band is dynamic, the ring shows the dynamic range in red. The current "
    "dynamic gain level is visualized as a yellow bar within the dynamic range.";
inline constexpr const char* kDynamicsEnabled =
    "The Bypass Dynamics button lets you easily bypass the dynamic behavior of the selected EQ bands so you "
    "can listen to the difference between dynamic and regular EQ processing.";
inline constexpr const char* kDynamicsAuto =
    "By default, dynamic EQ bands use an intelligent auto-threshold system and determine the attack and "
    "release times automatically.\n\nClick the >> button to turn off auto mode and reveal a panel with "
    "various controls to customize the dynamic behavior of a band instead.";
inline constexpr const char* kThreshold =
    "The Threshold slider sets a specific threshold for the dynamic triggering process. Behind the slider is "
    "a level meter showing the trigger level for the focused EQ band. You can use this to set the threshold "
    "so the band triggers only on certain parts of the incoming signal.\n\nAt the top position, the slider "
    "button shows an 'A', which means that it's in auto-threshold mode, where the threshold is intelligently "
    "determined depending on the current triggering input level.\n\nNote that the dynamic EQ algorithm uses "
    "a soft knee so it starts triggering a little bit below the selected threshold.";
inline constexpr const char* kAttack =
    "The attack and release times of dynamics processing in Ondrel are program dependent and automatically "
    "set depending on the input signal and band settings.\n\nUsing the Attack knob, you can deviate from the "
    "default behavior (50%) and make the attack faster or slower.";
inline constexpr const char* kRelease =
    "The attack and release times of dynamics processing in Ondrel are program dependent and automatically "
    "set depending on the input signal and band settings.\n\nUsing the Release knob, you can deviate from "
    "the default behavior (50%) and make the release faster or slower.";
inline constexpr const char* kExternalSideChain =
    "The External Side Chain button lets you toggle between triggering on the (band limited and possibly M/S "
    "encoded) plug-in input signal, or the (unprocessed) external side chain input.";
inline constexpr const char* kSideChainFrequencies =
    "The Side Chain Low and High Frequency parameters (only available when the band's Side Chain Filtering "
    "is set to Free) determine the high- and low-pass frequencies at which the detection signal will be "
    "filtered. This allows for the band's compression/expansion to trigger on a totally different frequency "
    "range than the range for the band itself.";
inline constexpr const char* kSideChainAudition =
    "By holding the Audition Triggering button, you can listen to the current signal the dynamics processing "
    "is triggering on.";
inline constexpr const char* kSpectralEnabled =
    "The Spectral button at the top of the dynamic range ring toggles between normal and Spectral dynamics "
    "processing.\n\nIn Spectral mode, Ondrel 4 doesn't change the gain of the whole band, but triggers per "
    "specific frequency within that band when it exceeds the threshold, leaving other frequencies "
    "untouched.\n\nSee 'Spectral dynamics' in the help file for more information.";
inline constexpr const char* kSpectralDensity =
    "The Spectral Density slider sets how selective the spectral processing is. At lower values, the ranges "
    "that are triggered for frequencies will be relatively wide, while the areas will be very narrow and "
    "specific for higher density values.";
inline constexpr const char* kSolo =
    "The Solo button lets you audition the part of the spectrum that will be affected by the EQ band. In "
    "case of Low Cut or High Cut filters, this lets you listen to the part of audio which is being cut "
    "off.\n\nTip: While holding the solo button, drag up and down to change the gain of the solo signal.";
inline constexpr const char* kSpectralTilt =
    "The Spectral Tilt button sets whether a tilt of 3 dB/oct is applied to the input spectrum before it is "
    "used to trigger the spectral dynamics processing. This is enabled by default for newly created "
    "bands.\n\nBy applying this gentle tilt to the spectrum, higher frequencies will trigger slightly more "
    "than lower frequencies. This helps to get more natural sounding results, especially when working on "
    "complex, wide-range audio such as a complete mix where the frequency spectrum often matches a pink "
    "noise response.";

} // namespace band_help
