// How many samples the pixels of a frame get, and with which random numbers.
#include <atomic>

#include "stage_scene.h"

namespace {

using namespace stage_test;

struct Frame {
    std::vector<float> pixels;
    int samples;
};

// 16 by 16 pixels of a surrounding that is 1 left of the middle of the ninth column, elsewhere 0.
Frame render(const std::string& options, int threads, const std::string& camera = "") {
    TestScene s;
    std::atomic<int> samples{0};
    s.shader("step", [&](miState* state, miColor& c) {
        ++samples;
        c.r = state->raster_x < 8.5f ? 1.0f : 0.0f;
        c.g = 0.0625f * mi_par_random(state);
    });
    s.parse("incremental options opt jitter 0 " + options + " end options\n");
    s.build("environment step framebuffer m datatype 'rgba_fp' " + camera);
    const std::vector<float> pixels = s.render(threads)[0].pixels;
    return {pixels, samples};
}

// In one bucket all pixels have one sample, in the middle: 1 up to column 7, 0 from column 8 on. These two
// differ from each other and take 4 more; those of column 7 agree, those of column 8 do not, and it takes 16
// more.
TEST(StageSamplesAsNeeded, GoWherePixelsDiffer) {
    const Frame frame = render("samples 0 2 contrast 0.1 0.1 0.1 0.1 task size 16", 1);
    EXPECT_EQ(frame.samples, 16 * (16 + 2 * 4 + 16));
    for (int y = 0; y < 16; ++y) {
        const float* row = &frame.pixels[static_cast<std::size_t>(4 * 16 * y)];
        EXPECT_EQ(row[4 * 7], 1.0f);
        EXPECT_EQ(row[4 * 8], 0.5f);
        EXPECT_EQ(row[4 * 9], 0.0f);
    }
    // However it is divided.
    for (const char* size : {"4", "7"})
        EXPECT_EQ(render("samples 0 2 task size " + std::string(size), 3).pixels, frame.pixels) << size;
    EXPECT_EQ(render("samples 0 2 contrast 1 1 1 1", 1).samples, 256);
    EXPECT_EQ(render("samples 2 2", 1).samples, 16 * 256);
}

TEST(StageSamplesAsNeeded, SamplelockKeepsThePatternFromFrameToFrame) {
    const auto pixels = [](const std::string& lock, int frame) {
        return render("samplelock " + lock, 1, "frame " + std::to_string(frame)).pixels;
    };
    EXPECT_EQ(pixels("on", 1), pixels("on", 2));
    EXPECT_NE(pixels("off", 1), pixels("off", 2));
    EXPECT_EQ(pixels("off", 2), pixels("off", 2));
}

} // namespace
