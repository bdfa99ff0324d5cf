// Times the final resize of the default export path: a frame upscaled twice by 4 (16384x9216)
// brought down to the 8K canvas, and a small frame enlarged to it. Prints the best of RUNS.
//
//   resize_bench [RUNS]      (default 3)

#include "export/frame_resize.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

using Clock = std::chrono::steady_clock;

lumivesper::platform::PixelImage textured(int width, int height) {
    lumivesper::platform::PixelImage image(width, height);
    for (int y = 0; y < height; ++y) {
        std::uint8_t* row = image.pixel(0, y);
        for (int x = 0; x < width; ++x, row += 4) {
            row[0] = static_cast<std::uint8_t>((x * 7 + y * 3) & 255);
            row[1] = static_cast<std::uint8_t>((x ^ y) & 255);
            row[2] = static_cast<std::uint8_t>((x * y) >> 6 & 255);
            row[3] = 255;
        }
    }
    return image;
}

double bestSeconds(int runs, const lumivesper::platform::PixelImage& source) {
    double best = 1e9;
    for (int run = 0; run < runs; ++run) {
        const auto start = Clock::now();
        const auto result = lumivesper::exporting::fillAndCrop(source, 7680, 4320);
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
        if (result.width != 7680)
            std::abort();
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    const auto large = textured(16384, 9216);
    std::printf("16384x9216 -> 7680x4320 (shrink 2.13x): %.2f s\n", bestSeconds(runs, large));
    const auto small = textured(1024, 576);
    std::printf("1024x576 -> 7680x4320 (enlarge 7.5x):   %.2f s\n", bestSeconds(runs, small));
    return 0;
}
