# The VST3 SDK as Debian ships it inside juce-modules-source, compiled from that system path into a
# static library. Nothing of it is copied into this repository.
find_path(VST3_SDK_ROOT pluginterfaces/base/funknown.h
          PATHS /usr/share/juce/modules/juce_audio_processors/format_types/VST3_SDK
          NO_DEFAULT_PATH REQUIRED)
set(VST3_PSL_EXTENSIONS ${VST3_SDK_ROOT}/../pslextensions)

set(vst3_sources
    pluginterfaces/base/conststringtable.cpp
    pluginterfaces/base/coreiids.cpp
    pluginterfaces/base/funknown.cpp
    pluginterfaces/base/ustring.cpp
    base/source/baseiids.cpp
    base/source/fbuffer.cpp
    base/source/fdebug.cpp
    base/source/fobject.cpp
    base/source/fstreamer.cpp
    base/source/fstring.cpp
    base/source/updatehandler.cpp
    base/thread/source/flock.cpp
    public.sdk/source/common/memorystream.cpp
    public.sdk/source/common/pluginview.cpp
    public.sdk/source/vst/vstbus.cpp
    public.sdk/source/vst/vstcomponent.cpp
    public.sdk/source/vst/vstcomponentbase.cpp
    public.sdk/source/vst/vsteditcontroller.cpp
    public.sdk/source/vst/vstinitiids.cpp
    public.sdk/source/vst/vstparameters.cpp
    public.sdk/source/vst/vstpresetfile.cpp)
list(TRANSFORM vst3_sources PREPEND ${VST3_SDK_ROOT}/)

add_library(vst3sdk STATIC ${vst3_sources} ${PROJECT_SOURCE_DIR}/src/host/vst3sdk/MissingInterfaceIds.cpp)
target_include_directories(vst3sdk SYSTEM PUBLIC ${VST3_SDK_ROOT} ${VST3_PSL_EXTENSIONS})
# Our own interface declarations live beside the plug-in code.
target_include_directories(vst3sdk PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(vst3sdk PUBLIC RELEASE=1)
# Third-party code keeps its own warnings to itself.
target_compile_options(vst3sdk PRIVATE -w)
find_package(Threads REQUIRED)
target_link_libraries(vst3sdk PUBLIC Threads::Threads ${CMAKE_DL_LIBS})
