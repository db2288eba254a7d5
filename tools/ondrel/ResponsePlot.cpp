#include "ResponsePlot.h"

#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace {

constexpr int kWidth = 1000;
constexpr int kHeight = 560;
constexpr double kLeft = 64.0, kRight = 24.0, kTop = 44.0, kBottom = 52.0;
constexpr double kLowestDb = -72.0, kHighestDb = 36.0;

struct Colour {
    double r, g, b;
};

constexpr Colour kAnalogColour{0.10, 0.40, 0.85};
constexpr Colour kDigitalColour{0.90, 0.35, 0.10};
constexpr Colour kTextColour{0.15, 0.15, 0.15};

// Maps hertz and decibels to pixels inside the plot rectangle.
struct Axes {
    double lowHz, highHz, lowDb, highDb;

    double x(double hz) const {
        return kLeft + (kWidth - kLeft - kRight) * std::log(hz / lowHz) / std::log(highHz / lowHz);
    }
    double y(double db) const { return kTop + (kHeight - kTop - kBottom) * (highDb - db) / (highDb - lowDb); }
};

// Whole multiples of 6 dB around both curves, at least -12..+12 dB, and not so deep that a cut's
// stop band squashes the pass band.
Axes axesFor(const ResponsePlotData& data) {
    double lowest = 0.0, highest = 0.0;
    for (const auto* curve : {&data.analogDb, &data.digitalDb})
        for (double db : *curve) {
            lowest = std::min(lowest, db);
            highest = std::max(highest, db);
        }
    const double top = std::clamp(std::ceil((highest + 1.0) / 6.0) * 6.0, 12.0, kHighestDb);
    const double bottom = std::clamp(std::floor((lowest - 1.0) / 6.0) * 6.0, kLowestDb, -12.0);
    return {data.frequencies.front(), data.frequencies.back(), bottom, top};
}

void setColour(cairo_t* cr, Colour colour, double alpha = 1.0) {
    cairo_set_source_rgba(cr, colour.r, colour.g, colour.b, alpha);
}

void drawText(cairo_t* cr, const std::string& text, double x, double y, double alignX, double alignY) {
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, x - extents.x_bearing - alignX * extents.width,
                  y - extents.y_bearing - alignY * extents.height);
    cairo_show_text(cr, text.c_str());
}

std::string frequencyLabel(double hz) {
    return hz >= 1000.0 ? std::to_string(static_cast<int>(hz / 1000.0)) + "k"
                        : std::to_string(static_cast<int>(hz));
}

void drawGrid(cairo_t* cr, const Axes& axes) {
    cairo_set_line_width(cr, 1.0);
    cairo_set_font_size(cr, 12.0);
    const double plotBottom = kHeight - kBottom;
    // Lines at every 1..9 x 10^n Hz, labels at 1, 2 and 5 up to 20 kHz.
    for (double decade = 10.0; decade < axes.highHz; decade *= 10.0)
        for (int multiple = 1; multiple <= 9; ++multiple) {
            const double hz = decade * multiple;
            if (hz < axes.lowHz || hz > axes.highHz)
                continue;
            const bool labelled = (multiple == 1 || multiple == 2 || multiple == 5) && hz <= 20000.0;
            setColour(cr, kTextColour, labelled ? 0.25 : 0.08);
            const double x = std::round(axes.x(hz)) + 0.5;
            cairo_move_to(cr, x, kTop);
            cairo_line_to(cr, x, plotBottom);
            cairo_stroke(cr);
            if (labelled) {
                setColour(cr, kTextColour);
                drawText(cr, frequencyLabel(hz), x, plotBottom + 6.0, 0.5, 0.0);
            }
        }
    const double dbStep = axes.highDb - axes.lowDb > 48.0 ? 12.0 : 6.0;
    for (double db = std::ceil(axes.lowDb / dbStep) * dbStep; db <= axes.highDb; db += dbStep) {
        setColour(cr, kTextColour, db == 0.0 ? 0.5 : 0.15);
        const double y = std::round(axes.y(db)) + 0.5;
        cairo_move_to(cr, kLeft, y);
        cairo_line_to(cr, kWidth - kRight, y);
        cairo_stroke(cr);
        setColour(cr, kTextColour);
        char label[16];
        std::snprintf(label, sizeof label, "%+.0f", db);
        drawText(cr, db == 0.0 ? "0" : label, kLeft - 8.0, y, 1.0, 0.5);
    }
    setColour(cr, kTextColour, 0.6);
    cairo_rectangle(cr, kLeft + 0.5, kTop + 0.5, kWidth - kLeft - kRight - 1.0, plotBottom - kTop - 1.0);
    cairo_stroke(cr);
    setColour(cr, kTextColour);
    drawText(cr, "Hz", kWidth - kRight, kHeight - 8.0, 1.0, 1.0);
    drawText(cr, "dB", kLeft - 8.0, kTop - 12.0, 1.0, 1.0);
}

void drawCurve(cairo_t* cr, const Axes& axes, const std::vector<double>& frequencies,
               const std::vector<double>& db, Colour colour, double width) {
    cairo_save(cr);
    cairo_rectangle(cr, kLeft, kTop, kWidth - kLeft - kRight, kHeight - kTop - kBottom);
    cairo_clip(cr);
    // Values far outside the axes are pinned just beyond them so the line leaves the plot cleanly.
    const auto pinned = [&](double value) {
        return std::clamp(value, axes.lowDb - 12.0, axes.highDb + 12.0);
    };
    for (size_t i = 0; i < frequencies.size(); ++i) {
        const double x = axes.x(frequencies[i]), y = axes.y(pinned(db[i]));
        if (i == 0)
            cairo_move_to(cr, x, y);
        else
            cairo_line_to(cr, x, y);
    }
    setColour(cr, colour);
    cairo_set_line_width(cr, width);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void drawLegend(cairo_t* cr) {
    const std::array<std::pair<const char*, Colour>, 2> entries{
        {{"analog", kAnalogColour}, {"Zero Latency", kDigitalColour}}};
    const double x = kWidth - kRight - 160.0;
    double y = kTop + 18.0;
    cairo_set_source_rgba(cr, 1.0, 1.0, 1.0, 0.85);
    cairo_rectangle(cr, x - 10.0, kTop + 6.0, 150.0, 50.0);
    cairo_fill(cr);
    cairo_set_font_size(cr, 13.0);
    for (const auto& [name, colour] : entries) {
        setColour(cr, colour);
        cairo_set_line_width(cr, 2.5);
        cairo_move_to(cr, x, y);
        cairo_line_to(cr, x + 28.0, y);
        cairo_stroke(cr);
        setColour(cr, kTextColour);
        drawText(cr, name, x + 36.0, y, 0.0, 0.5);
        y += 22.0;
    }
}

} // namespace

bool writeResponsePlot(const ResponsePlotData& data, const std::string& file, std::string& error) {
    if (data.frequencies.size() < 2) {
        error = "nothing to plot";
        return false;
    }
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kWidth, kHeight), cairo_surface_destroy);
    const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(surface.get()),
                                                                     cairo_destroy);
    cairo_t* cr = context.get();
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_paint(cr);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);

    const Axes axes = axesFor(data);
    drawGrid(cr, axes);
    // The digital curve goes on top, thinner, so where the two agree both stay visible.
    drawCurve(cr, axes, data.frequencies, data.analogDb, kAnalogColour, 3.5);
    drawCurve(cr, axes, data.frequencies, data.digitalDb, kDigitalColour, 1.6);
    drawLegend(cr);
    setColour(cr, kTextColour);
    cairo_set_font_size(cr, 14.0);
    drawText(cr, data.title, kLeft, kTop - 12.0, 0.0, 1.0);

    cairo_surface_flush(surface.get());
    const cairo_status_t status = cairo_surface_write_to_png(surface.get(), file.c_str());
    if (status != CAIRO_STATUS_SUCCESS) {
        error = "cannot write '" + file + "': " + cairo_status_to_string(status);
        return false;
    }
    return true;
}
