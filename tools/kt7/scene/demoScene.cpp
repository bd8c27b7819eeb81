// The picture. Shapes are signed distances turned into coverage over one pixel, so edges are
// anti-aliased without sampling a pixel twice. Coordinates have the height as their unit.
#include "tools/kt7/scene/demoScene.h"

#include <algorithm>
#include <cmath>

namespace kt7 {
namespace {

struct Rgb {
    float r, g, b;
};

Rgb operator*(Rgb a, float s) {
    return {a.r * s, a.g * s, a.b * s};
}
Rgb mix(Rgb a, Rgb b, float t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}
float unit(float v) {
    return std::clamp(v, 0.0f, 1.0f);
}
float smooth(float low, float high, float v) {
    const float t = unit((v - low) / (high - low));
    return t * t * (3.0f - 2.0f * t);
}
int floorOf(float v) {
    const int t = static_cast<int>(v);
    return static_cast<float>(t) > v ? t - 1 : t;
}
float fraction(float v) {
    return v - static_cast<float>(floorOf(v));
}

/// 0..1 for a lattice point.
float lattice(int x, int y, int layer) {
    std::uint32_t h = static_cast<std::uint32_t>(x) * 0x8DA6B343u ^
                      static_cast<std::uint32_t>(y) * 0xD8163841u ^
                      static_cast<std::uint32_t>(layer) * 0xCB1AB31Fu;
    h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
    h = (h ^ (h >> 12)) * 0x297A2D39u;
    return static_cast<float>((h ^ (h >> 15)) & 0xFFFFFF) / 16777215.0f;
}

/// Smooth noise, 0..1, with features of size 1 (Perlin 1985, on values).
float noiseAt(float x, float y, int layer) {
    const int ix = floorOf(x), iy = floorOf(y);
    const float tx = smooth(0.0f, 1.0f, x - static_cast<float>(ix));
    const float ty = smooth(0.0f, 1.0f, y - static_cast<float>(iy));
    const float top = lattice(ix, iy, layer) * (1.0f - tx) + lattice(ix + 1, iy, layer) * tx;
    const float low =
        lattice(ix, iy + 1, layer) * (1.0f - tx) + lattice(ix + 1, iy + 1, layer) * tx;
    return top * (1.0f - ty) + low * ty;
}

/// Four octaves of it, mean 0.5.
float cloudAt(float x, float y, int layer) {
    float sum = 0.0f, weight = 0.5f;
    for (int octave = 0; octave < 4; ++octave, weight *= 0.5f, x *= 2.03f, y *= 2.03f)
        sum += weight * noiseAt(x, y, layer + octave);
    return sum * (1.0f / 0.9375f);
}

/// One pixel of the picture on its way to a colour.
class Painter {
  public:
    Painter(int x, int y, int width, int height)
        : px_(static_cast<float>(x)), py_(static_cast<float>(y)), unit_(static_cast<float>(height)),
          u_((px_ + 0.5f) / unit_), v_((py_ + 0.5f) / unit_),
          aspect_(static_cast<float>(width) / unit_) {}

    Rgb paint() {
        landscape();
        balloon(0.30f, 0.25f, 0.135f, {0.92f, 0.12f, 0.10f}, {0.98f, 0.80f, 0.10f}, 6.0f);
        balloon(0.50f * aspect_, 0.16f, 0.075f, {0.10f, 0.30f, 0.85f}, {0.95f, 0.95f, 0.95f}, 5.0f);
        balloon(aspect_ - 0.16f, 0.23f, 0.050f, {0.62f, 0.10f, 0.62f}, {0.10f, 0.70f, 0.55f}, 4.0f);
        house(aspect_ - 0.50f, 0.55f);
        fence();
        sign(0.10f, 0.63f);
        chart(0.52f, 0.86f);
        star(aspect_ - 0.115f, 0.885f, 0.095f);
        return {unit(colour_.r), unit(colour_.g), unit(colour_.b)};
    }

  private:
    /// Coverage of this pixel by a shape, from the distance to its edge (negative inside).
    float cover(float distance) const { return unit(0.5f - distance * unit_); }
    void over(Rgb colour, float coverage) { colour_ = mix(colour_, colour, coverage); }

    float box(float left, float top, float width, float height) const {
        const float dx = std::max(left - u_, u_ - (left + width));
        const float dy = std::max(top - v_, v_ - (top + height));
        return std::max(dx, dy);
    }
    float disc(float x, float y, float radius) const {
        return std::sqrt((u_ - x) * (u_ - x) + (v_ - y) * (v_ - y)) - radius;
    }
    float segment(float ax, float ay, float bx, float by) const {
        const float dx = bx - ax, dy = by - ay;
        const float t = unit(((u_ - ax) * dx + (v_ - ay) * dy) / (dx * dx + dy * dy));
        return disc(ax + t * dx, ay + t * dy, 0.0f);
    }
    /// Texture of a size in pixels, about -0.5..0.5.
    float grain(float pixelsX, float pixelsY, int layer) const {
        return noiseAt(px_ / pixelsX, py_ / pixelsY, layer) - 0.5f;
    }

    Rgb skyAt(float x, float y) const {
        const Rgb high{0.13f, 0.31f, 0.62f}, low{0.98f, 0.80f, 0.62f};
        Rgb sky = mix(high, low, smooth(-0.05f, 0.58f, y));
        const float dx = x - 0.62f * aspect_, dy = y - 0.44f;
        const float glow = 1.0f / (1.0f + 14.0f * (dx * dx + dy * dy));
        sky = mix(sky, {1.0f, 0.93f, 0.74f}, 0.75f * glow * glow);
        const float cloud = smooth(0.48f, 0.80f, cloudAt(x * 2.4f, y * 7.0f, 3));
        return mix(sky, {0.99f, 0.93f, 0.90f}, 0.55f * cloud);
    }

    float ridge(float base, float height, float frequency, int layer) const {
        return base - height * cloudAt(u_ * frequency, 0.37f, layer);
    }

    void landscape() {
        constexpr float shore = 0.56f, meadow = 0.72f;
        colour_ = skyAt(u_, v_);
        over({0.55f, 0.60f, 0.74f}, cover(ridge(0.52f, 0.30f, 2.1f, 20) - v_));
        const float near = ridge(0.56f, 0.22f, 3.3f, 30) - v_;
        over(mix({0.33f, 0.40f, 0.55f}, {0.46f, 0.52f, 0.62f}, unit(-near * 5.0f)), cover(near));
        const float wood =
            0.53f - 0.035f * cloudAt(u_ * 5.0f, 0.1f, 40) - 0.018f * grain(3.0f, 1e9f, 44) - v_;
        const Rgb pine = Rgb{0.10f, 0.23f, 0.17f} * (1.0f + 0.9f * grain(2.2f, 3.5f, 45));
        over(pine, cover(wood));

        // Water: the sky upside down, broken by ripples that grow towards the viewer.
        const float depth = unit((v_ - shore) / (meadow - shore));
        const float ripple = grain(9.0f + 25.0f * depth, 1.6f + 2.0f * depth, 50);
        Rgb water = skyAt(u_ + 0.02f * ripple, 2.0f * shore - v_ - 0.05f) * 0.78f;
        water = mix(water, {0.08f, 0.20f, 0.30f}, 0.35f + 0.35f * depth);
        over(water * (1.0f + (0.12f + 0.25f * depth) * ripple), cover(shore - v_));

        const float bank = meadow + 0.018f * (cloudAt(u_ * 4.0f, 0.7f, 60) - 0.5f) +
                           0.010f * grain(2.0f, 1e9f, 62) - v_;
        const float patch = cloudAt(u_ * 5.0f, v_ * 9.0f, 64);
        Rgb grass = mix({0.20f, 0.36f, 0.10f}, {0.55f, 0.58f, 0.20f}, patch);
        grass = grass * (0.92f + 0.75f * grain(1.7f, 5.0f, 66) + 0.35f * grain(4.0f, 11.0f, 67));
        const float flower = noiseAt(px_ / 4.0f, py_ / 4.0f, 68) *
                             smooth(0.45f, 0.7f, cloudAt(u_ * 3.0f, v_ * 6.0f, 70));
        grass = mix(grass,
                    px_ * 0.03f - static_cast<float>(floorOf(px_ * 0.03f)) < 0.5f
                        ? Rgb{0.95f, 0.85f, 0.15f}
                        : Rgb{0.90f, 0.30f, 0.45f},
                    smooth(0.62f, 0.78f, flower));
        over(grass, cover(bank));
    }

    void balloon(float x, float y, float radius, Rgb one, Rgb two, float stripes) {
        const float foot = y + radius * 1.65f;
        for (const float side : {-0.30f, 0.30f})
            over({0.15f, 0.12f, 0.10f}, cover(segment(x + side * radius, y + radius * 0.95f,
                                                      x + side * radius * 0.5f, foot) -
                                              0.0012f));
        over({0.40f, 0.24f, 0.10f},
             cover(box(x - radius * 0.16f, foot, radius * 0.32f, radius * 0.22f)));
        // The lower half narrows towards the basket.
        const float dy = (v_ - y) / radius;
        const float squeeze = dy > 0.0f ? 1.0f + 0.35f * dy * dy : 1.0f;
        const float dx = (u_ - x) / radius * squeeze;
        const float distance = (std::sqrt(dx * dx + dy * dy) - 1.0f) * radius;
        if (distance > 0.01f)
            return;
        const float round = std::sqrt(std::max(0.04f, 1.0f - dy * dy));
        const float across = std::clamp(dx / round, -1.0f, 1.0f);
        // The angle on the globe, by a cheap arcsine.
        const float turn = across * (1.0f + 0.5708f * across * across) / 1.5708f;
        const float edge = std::abs(fraction(turn * stripes * 0.5f) - 0.5f) - 0.25f;
        const float width = stripes * 0.5f / (radius * unit_ * round);
        const float light = unit(0.62f - 0.40f * dx - 0.34f * dy) *
                            (0.55f + 0.45f * std::sqrt(unit(1.0f - dx * dx)));
        const Rgb cloth = mix(one, two, unit(0.5f + edge / width)) * (0.35f + 0.95f * light);
        over(cloth, cover(distance));
        const float sx = dx + 0.35f, sy = dy + 0.40f;
        over({1.0f, 1.0f, 0.97f}, cover(distance) * 0.45f / (1.0f + 22.0f * (sx * sx + sy * sy)));
    }

    void house(float x, float y) {
        constexpr float width = 0.25f, height = 0.20f;
        over(Rgb{0.12f, 0.16f, 0.06f},
             0.5f *
                 unit(1.0f - 14.0f * std::max(0.0f, box(x - 0.01f, y + height - 0.005f,
                                                        width + 0.05f, 0.02f))) *
                 cover(y + height - 0.012f - v_));
        // Bricks, about 9 by 4 pixels each, with light mortar.
        const float row = (v_ - y) * unit_ / 4.5f;
        const int course = floorOf(row);
        const float column = (u_ - x) * unit_ / 9.5f + ((course & 1) != 0 ? 0.5f : 0.0f);
        const float shade = lattice(floorOf(column), course, 80);
        Rgb wall = mix({0.58f, 0.22f, 0.15f}, {0.74f, 0.36f, 0.24f}, shade);
        const float mortar =
            std::max(smooth(0.72f, 0.92f, fraction(row)), smooth(0.86f, 0.96f, fraction(column)));
        wall = mix(wall, {0.76f, 0.70f, 0.62f}, mortar) * (1.0f + 0.18f * grain(1.3f, 1.3f, 81));
        over(wall, cover(box(x, y, width, height)));

        // Roof with rows of tiles.
        const float rise = y - 0.115f;
        const float slope = 0.47f;
        const float roof =
            std::max({rise + std::abs(u_ - (x + width * 0.5f)) * (0.115f / (width * slope)) - v_,
                      v_ - (y + 0.012f)});
        const float lines = std::abs(fraction(py_ / 5.0f) - 0.5f);
        const float joints = std::abs(
            fraction(px_ / 7.0f + 0.5f * static_cast<float>(floorOf(py_ / 5.0f) & 1)) - 0.5f);
        Rgb tiles = Rgb{0.33f, 0.30f, 0.34f} * (0.8f + 0.6f * lines);
        tiles = tiles * (1.0f - 0.3f * smooth(0.40f, 0.5f, joints));
        over(tiles, cover(roof * 0.75f));

        for (const float offset : {0.035f, 0.165f}) {
            over({0.93f, 0.91f, 0.86f}, cover(box(x + offset, y + 0.04f, 0.05f, 0.065f)));
            const Rgb glass = mix({0.10f, 0.16f, 0.24f}, {0.55f, 0.66f, 0.78f},
                                  unit((u_ - x - offset + y + 0.105f - v_) * 9.0f - 0.3f));
            for (const float pane : {0.005f, 0.0275f})
                for (const float level : {0.045f, 0.075f})
                    over(glass, cover(box(x + offset + pane, y + level, 0.0175f, 0.025f)));
        }
        over({0.12f, 0.34f, 0.22f}, cover(box(x + 0.1f, y + 0.085f, 0.05f, 0.115f)));
        over({0.90f, 0.75f, 0.30f}, cover(disc(x + 0.142f, y + 0.145f, 0.004f)));
    }

    void fence() {
        constexpr float top = 0.735f, bottom = 0.80f, pitch = 0.026f;
        const float right = aspect_ - 0.28f;
        const Rgb white{0.94f, 0.93f, 0.90f};
        for (const float rail : {0.748f, 0.780f})
            over(white * 0.9f, cover(box(0.44f, rail, right - 0.44f, 0.006f)));
        const float slot = (fraction((u_ - 0.44f) / pitch) - 0.5f) * pitch;
        const float point = std::max(0.0f, std::abs(slot)) * 1.2f;
        const float slat = std::max(
            {std::abs(slot) - 0.006f, top + point - v_, v_ - bottom, 0.44f - u_, u_ - right});
        over(white * (1.0f + 0.1f * grain(1.5f, 9.0f, 90)), cover(slat));
    }

    void sign(float x, float y) {
        over({0.34f, 0.22f, 0.12f}, cover(box(x + 0.045f, y, 0.014f, 0.30f)));
        over({0.34f, 0.22f, 0.12f}, cover(box(x + 0.241f, y, 0.014f, 0.30f)));
        over({0.25f, 0.16f, 0.08f}, cover(box(x - 0.006f, y - 0.006f, 0.312f, 0.192f)));
        over({0.96f, 0.94f, 0.86f}, cover(box(x, y, 0.30f, 0.18f)));
        letters(6, x + 0.02f, y + 0.014f, 0.0073f, {0.70f, 0.10f, 0.10f});
        letters(25, x + 0.02f, y + 0.080f, 0.00173f, {0.1f, 0.1f, 0.12f});
        letters(17, x + 0.02f, y + 0.100f, 0.00255f, {0.1f, 0.1f, 0.12f});
        letters(10, x + 0.02f, y + 0.126f, 0.00433f, {0.10f, 0.25f, 0.60f});
        // A ruler whose marks come closer and closer.
        const float along = (u_ - x - 0.02f) / 0.26f;
        const float marks = std::abs(fraction(18.0f * along * (1.0f + along)) - 0.5f) - 0.25f;
        const float spread = 18.0f * (1.0f + 2.0f * along) / (0.26f * unit_);
        over({0.05f, 0.05f, 0.05f},
             cover(box(x + 0.02f, y + 0.163f, 0.26f, 0.012f)) * unit(0.5f + marks / spread));
    }

    /// A line of letters of no alphabet: strokes of a dot's width in boxes of five by seven dots.
    void letters(int count, float x, float y, float dot, Rgb ink) {
        constexpr int wide = 5, high = 7, advance = wide + 1, layer = 120;
        if (box(x, y, dot * static_cast<float>(count * advance), dot * static_cast<float>(high)) >
            0.0f)
            return;
        const auto isInk = [&](int column, int row) {
            const int letter = column / advance, stroke = column % advance;
            if (stroke == wide)
                return false;
            // Uprights on even columns, bars on the first, middle and last row.
            const bool upright = stroke % 2 == 0 && lattice(letter, stroke, count) > 0.4f;
            const bool bar = row % 3 == 0 && lattice(letter, row, layer + count) > 0.4f;
            return upright || bar;
        };
        // Dots are smaller than pixels at times: four by four samples give their share.
        int hits = 0;
        for (int sy = 0; sy < 4; ++sy)
            for (int sx = 0; sx < 4; ++sx) {
                const float su = (px_ + 0.125f + 0.25f * static_cast<float>(sx)) / unit_ - x;
                const float sv = (py_ + 0.125f + 0.25f * static_cast<float>(sy)) / unit_ - y;
                hits += su > 0.0f && isInk(floorOf(su / dot), floorOf(sv / dot)) ? 1 : 0;
            }
        over(ink, static_cast<float>(hits) / 16.0f);
    }

    void chart(float x, float y) {
        static constexpr Rgb patches[] = {
            {0.45f, 0.32f, 0.27f}, {0.76f, 0.58f, 0.51f}, {0.36f, 0.48f, 0.61f},
            {0.87f, 0.16f, 0.14f}, {0.20f, 0.62f, 0.22f}, {0.14f, 0.22f, 0.68f},
            {0.95f, 0.82f, 0.08f}, {0.75f, 0.20f, 0.60f}, {0.05f, 0.55f, 0.68f},
            {0.98f, 0.50f, 0.06f}, {0.98f, 0.98f, 0.97f}, {0.78f, 0.78f, 0.78f},
            {0.60f, 0.60f, 0.60f}, {0.42f, 0.42f, 0.42f}, {0.24f, 0.24f, 0.24f},
            {0.06f, 0.06f, 0.06f}};
        constexpr float side = 0.042f, pitch = 0.050f;
        over({0.11f, 0.11f, 0.12f}, cover(box(x, y, 8 * pitch + 0.008f, 2 * pitch + 0.008f)));
        for (int i = 0; i < 16; ++i) {
            const int column = i % 8, row = i / 8;
            over(patches[i], cover(box(x + 0.008f + pitch * static_cast<float>(column),
                                       y + 0.008f + pitch * static_cast<float>(row), side, side)));
        }
    }

    /// Spokes that meet in the middle: where they blur, resolution ends.
    void star(float x, float y, float radius) {
        const float distance = disc(x, y, radius);
        if (distance > 0.02f)
            return;
        over({0.97f, 0.97f, 0.95f}, cover(distance - 0.006f));
        const float dx = u_ - x, dy = v_ - y;
        const float r = std::sqrt(dx * dx + dy * dy) + 1e-6f;
        // An angle in quarter turns without trigonometry; spokes differ a little in width, no
        // matter.
        const float sum = std::abs(dx) + std::abs(dy) + 1e-6f;
        const float quarter = dx * dy >= 0.0f ? std::abs(dy) / sum : 1.0f + std::abs(dx) / sum;
        const float spoke = std::abs(fraction(quarter * 9.0f) - 0.5f) - 0.25f;
        const float spread = 9.0f / (1.4f * r * unit_);
        over({0.04f, 0.04f, 0.05f}, cover(distance) * unit(0.5f + spoke / spread));
    }

    float px_, py_, unit_, u_, v_, aspect_;
    Rgb colour_{};
};

} // namespace

DemoImage renderDemoScene(int width, int height) {
    DemoImage image{width, height, {}};
    image.rgb.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Rgb colour = Painter(x, y, width, height).paint();
            image.rgb.insert(image.rgb.end(), {colour.r, colour.g, colour.b});
        }
    return image;
}

} // namespace kt7
