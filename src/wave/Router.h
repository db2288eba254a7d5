#pragma once

#include "wave/FloatParameter.h"
#include "wave/Producer.h"

#include <memory>
#include <vector>

namespace wave {

// Sums a list of routes, each a producer scaled by its own smoothed gain, so that silent and unity
// routes cost nothing: a route held at gain 0 is not even pulled, and a lone unity route is handed
// on by reference. Once a block found exactly one unity route contributing, that route's producer
// is remembered and later blocks forward it without looking at the other routes; any change to a
// route or a route gain forgets it. With no contributing route the output is the zero block.
// Threading: routes are added while the graph is built; setters and process run on the audio
// thread.
class Router : public Source {
public:
    // Route gains ramp to a new value over this many milliseconds.
    static constexpr float kGainSmoothingMs = 20.0f;

    explicit Router(Environment* environment) : Source(environment) {}

    // Returns the index of the new route.
    int32_t addRoute(Producer* producer, float gain = 1.0f);
    void setRouteProducer(int32_t index, Producer* producer);
    void setRouteGain(int32_t index, float gain);
    // Sets the gain without a ramp.
    void jumpRouteGain(int32_t index, float gain);
    int32_t getNumRoutes() const { return static_cast<int32_t>(routes.size()); }
    Producer* getPassThrough() const { return passThrough; }

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;

private:
    struct Route {
        Producer* producer = nullptr;
        std::unique_ptr<FloatParameter> gain;
    };

    Route& route(int32_t index) { return routes[static_cast<size_t>(index)]; }

    std::vector<Route> routes;
    Producer* passThrough = nullptr;
};

} // namespace wave
