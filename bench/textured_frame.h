#pragma once

// Test frames for the benchmarks: textured like a photograph, so that encoders and resamplers
// see realistic work rather than flat colour.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace lumivesper::bench {

// Smooth value noise: a lattice of random values, bilinearly interpolated with a smoothstep.
class ValueNoise {
public:
    explicit ValueNoise(std::uint32_t seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
        for (auto& v : lattice_)
            v = uniform(random);
    }
    float at(float x, float y) const {
        const int xi = static_cast<int>(std::floor(x));
        const int yi = static_cast<int>(std::floor(y));
        const float fx = x - xi;
        const float fy = y - yi;
        const float sx = fx * fx * (3 - 2 * fx);
        const float sy = fy * fy * (3 - 2 * fy);
        const float a = value(xi, yi), b = value(xi + 1, yi);
        const float c = value(xi, yi + 1), d = value(xi + 1, yi + 1);
        return (a + (b - a) * sx) * (1 - sy) + (c + (d - c) * sx) * sy;
    }

private:
    float value(int x, int y) const { return lattice_[(x & 255) + 256 * (y & 255)]; }
    float lattice_[256 * 256];
};

// A landscape-like frame: sky gradient lit by a frame-dependent sun, ridges of fractal noise and
// fine grain, so the encoder sees what a photograph gives it rather than flat colour.
inline std::vector<std::uint8_t> makeFrame(int width, int height, int index, int count) {
    auto noise = std::make_unique<ValueNoise>(1234 + index);
    std::mt19937 grainRandom(99 + index);
    std::normal_distribution<float> grain(0.0f, 3.0f);
    const float daylight = 0.25f + 0.75f * std::sin(3.14159f * (index + 0.5f) / count);
    std::vector<std::uint8_t> rgb(std::size_t(width) * height * 3);
    for (int y = 0; y < height; ++y) {
        const float v = float(y) / height;
        for (int x = 0; x < width; ++x) {
            const float u = float(x) / width;
            float fractal = 0, amplitude = 0.5f, frequency = 4.0f;
            for (int octave = 0; octave < 5; ++octave) {
                fractal += amplitude * noise->at(u * frequency * 1.8f, v * frequency);
                amplitude *= 0.5f;
                frequency *= 2.0f;
            }
            const float ridge = 0.55f + 0.25f * fractal;
            float r, g, b;
            if (v < ridge) { // sky
                r = 60 + 150 * daylight * (1 - v) + 40 * fractal;
                g = 90 + 130 * daylight * (1 - v);
                b = 140 + 110 * daylight;
            } else { // land
                r = 40 + 90 * daylight * fractal;
                g = 60 + 120 * daylight * fractal;
                b = 30 + 50 * daylight * fractal;
            }
            std::uint8_t* pixel = rgb.data() + (std::size_t(y) * width + x) * 3;
            for (float channel : {r, g, b})
                *pixel++ =
                    static_cast<std::uint8_t>(std::clamp(channel + grain(grainRandom), 0.f, 255.f));
        }
    }
    return rgb;
}

} // namespace lumivesper::bench
