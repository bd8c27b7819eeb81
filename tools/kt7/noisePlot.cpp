#include "tools/kt7/noisePlot.h"

#include "tools/kt7/say.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

namespace kt7::tool {
namespace {

using Points = std::vector<std::pair<double, double>>;

struct Series {
    const char* name;
    const char* style; ///< class of the drawing
    Points points;
};

constexpr const char* names[3] = {"brightness", "red - blue", "green - magenta"};
constexpr const char* styles[3] = {"luma", "redBlue", "green"};

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : shown(text))
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return result;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", value);
    return text;
}

std::string words(double x, double y, const char* style, const std::string& text) {
    return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" class=\"" + style + "\">" + text +
           "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const std::string& style) {
    return "<line x1=\"" + number(x1) + "\" y1=\"" + number(y1) + "\" x2=\"" + number(x2) +
           "\" y2=\"" + number(y2) + "\" class=\"" + style + "\"/>\n";
}

/// 1, 2 or 5 times a power of ten, so that there are at most six steps.
double stepFor(double most) {
    double step = std::pow(10.0, std::floor(std::log10(most)) - 1.0);
    for (const double factor : {2.0, 2.5, 2.0, 2.0, 2.5, 2.0})
        if (most / step > 6.0)
            step *= factor;
    return step;
}

/// The part of the drawing from `left` on.
std::string chart(double left, const char* title, const char* abscissa, double mostX, double stepX,
                  const std::vector<Series>& all) {
    constexpr double top = 90, width = 380, height = 260, bottom = top + height;
    double mostY = 0.1;
    for (const Series& series : all)
        for (const auto& [x, y] : series.points)
            mostY = std::max(mostY, y);
    const double stepY = stepFor(mostY);
    mostY = stepY * std::ceil(mostY / stepY);
    const auto atX = [&](double x) { return left + width * x / mostX; };
    const auto atY = [&](double y) { return bottom - height * y / mostY; };

    std::string svg = words(left, top - 16, "head", title);
    for (int i = 0; stepX * i <= mostX * 1.0001; ++i) {
        svg += line(atX(stepX * i), bottom, atX(stepX * i), bottom + 5, "axis");
        svg += words(atX(stepX * i), bottom + 20, "middle", number(stepX * i));
    }
    for (int i = 0; stepY * i <= mostY * 1.0001; ++i) {
        svg += line(left, atY(stepY * i), left + width, atY(stepY * i), i == 0 ? "axis" : "grid");
        svg += words(left - 8, atY(stepY * i) + 4, "end", number(stepY * i));
    }
    svg += line(left, top, left, bottom, "axis");
    svg += words(left + width / 2, bottom + 42, "middle", abscissa);
    for (const Series& series : all) {
        std::string dots;
        svg += std::string("<polyline class=\"") + series.style + "\" points=\"";
        for (const auto& [x, y] : series.points) {
            svg += number(atX(x)) + "," + number(atY(y)) + " ";
            dots += std::string("<circle class=\"") + series.style + "\" cx=\"" + number(atX(x)) +
                    "\" cy=\"" + number(atY(y)) + "\" r=\"3\"/>\n";
        }
        svg += "\"/>\n" + dots;
    }
    return svg;
}

/// The mean power of a plane's coefficients, but for the mean of the block.
double meanPower(const float (&spectrum)[8][8]) {
    double sum = 0.0;
    for (const auto& row : spectrum)
        for (const float power : row)
            sum += static_cast<double>(power);
    return (sum - static_cast<double>(spectrum[0][0])) / 63.0;
}

/// Against the sum of the two frequencies of a coefficient, in half cycles a block of 8.
Points byFrequency(const float (&spectrum)[8][8]) {
    double sums[15] = {}, counts[15] = {};
    for (std::size_t down = 0; down < 8; ++down)
        for (std::size_t across = 0; across < 8; ++across) {
            sums[down + across] += static_cast<double>(spectrum[down][across]);
            counts[down + across] += 1.0;
        }
    Points points;
    for (std::size_t i = 1; i < 15; ++i) // the mean of a block is told from texture least of all
        points.emplace_back(static_cast<double>(i) / 16.0, std::sqrt(sums[i] / counts[i]));
    return points;
}

Points byIntensity(const Kt7PhotoNoise& noise, std::size_t plane) {
    Points points;
    const double power = meanPower(noise.spectrum[plane]);
    for (std::size_t band = 0; band < kt7PhotoBands; ++band)
        points.emplace_back(static_cast<double>(noise.intensity[band]),
                            std::sqrt(power * static_cast<double>(noise.gain[plane][band])));
    return points;
}

} // namespace

std::string noisePlot(const Kt7PhotoNoise& noise, const std::string& title) {
    std::vector<Series> curves, spectra;
    // A plane without noise, as of a grey photo, would be a line on the axis.
    for (std::size_t plane = 0; plane < 3; ++plane)
        if (plane == 0 || meanPower(noise.spectrum[plane]) > 1e-4) {
            curves.push_back({names[plane], styles[plane], byIntensity(noise, plane)});
            spectra.push_back({names[plane], styles[plane], byFrequency(noise.spectrum[plane])});
        }
    std::string svg =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"940\" height=\"410\" viewBox=\"0 0 940 "
        "410\" font-family=\"sans-serif\" font-size=\"13\">\n<style>\n"
        ".paper{fill:#fff}text{fill:#333}.title{font-size:17px;font-weight:bold}"
        ".head{font-weight:bold}.middle{text-anchor:middle}.end{text-anchor:end}"
        ".axis{stroke:#555}.grid{stroke:#ddd}polyline,line.key{fill:none;stroke-width:2}\n"
        ".luma{stroke:#555}.redBlue{stroke:#c62}.green{stroke:#197}"
        "circle.luma{fill:#555}circle.redBlue{fill:#c62}circle.green{fill:#197}\n"
        "polyline.redBlue,line.redBlue{stroke-dasharray:7 3}"
        "polyline.green,line.green{stroke-dasharray:2 3}\n"
        "@media (prefers-color-scheme:dark){.paper{fill:#1c1c1c}text{fill:#ddd}.axis{stroke:#aaa}"
        ".grid{stroke:#444}.luma{stroke:#bbb}circle.luma{fill:#bbb}}\n"
        "</style>\n<rect width=\"940\" height=\"410\" class=\"paper\"/>\n";
    svg += words(60, 34, "title", "Noise of " + escaped(title));
    svg += words(60, 54, "", "standard deviation, on the scale 0 to 255");
    double key = 480;
    for (const Series& series : curves) {
        svg += line(key, 49, key + 34, 49, std::string("key ") + series.style);
        svg += words(key + 40, 54, "", series.name);
        key += 140;
    }
    svg += chart(60, "Against intensity", "intensity, 0 black to 255 white", 255.0, 51.0, curves);
    svg += chart(520, "Against frequency", "frequency across plus down, in cycles a pixel", 0.875,
                 0.125, spectra);
    return svg + "</svg>\n";
}

} // namespace kt7::tool
