// Tone operators. The expected numbers were worked out apart, in double precision, from the curves' formulas.
#include "orl_toneop.h"
#include "shader_fixture.h"

using namespace orl;

ENTRY_POINT(orl_ToneOpLog, miColor, ToneOpLogParams);
INIT_AND_EXIT(orl_ToneOpLog, ToneOpLogParams);

namespace {

ToneOpLogParams log_defaults() {
    ToneOpLogParams p{};
    p.enabled = p.luminanceBased = miTRUE;
    p.physicalScale = 1500;
    p.whiteBalance = {1, 1, 1, 1};
    p.brightness = 65;
    p.contrast = 50;
    p.midTones = 1;
    return p;
}

TEST(LogMapping, Colors) {
    ToneOpLogParams channels = log_defaults(), white = log_defaults(), night = log_defaults();
    channels.luminanceBased = miFALSE;
    white.whiteBalanceOn = miTRUE;
    white.whiteBalance = {1, 0.8f, 0.0005f, 1};
    night.desaturateLowLevels = miTRUE;
    const struct {
        const char* what;
        ToneOpLogParams params;
        miColor in, out;
    } cases[] = {
        {"luminance", log_defaults(), {0.5f, 0.25f, 2, 0.3f}, {0.8120851f, 0.4060425f, 3.24834f, 0.3f}},
        {"no light", log_defaults(), {0, 0, 0, 0.7f}, {0, 0, 0, 0.7f}},
        {"each channel", channels, {0.5f, -0.25f, 2, 1}, {0.7594487f, 0, 0.8971954f, 1}},
        {"white balance", white, {0.5f, 0.25f, 2, 1}, {0.002902527f, 0.001814079f, 11.61011f, 1}},
        {"dusk", night, {0.002f, 0.004f, 0.001f, 1}, {0.01913563f, 0.02309525f, 0.01715582f, 1}},
        {"night", night, {2e-6f, 4e-6f, 1e-6f, 1}, {2.141316e-5f, 2.141316e-5f, 2.141316e-5f, 1}},
    };
    for (const auto& [what, params, in, out] : cases) {
        SCOPED_TRACE(what);
        expect_near(map_log(log_mapping(params), in), out, 1e-6f * (out.r + out.g + out.b));
    }
}

TEST(LogMapping, InverseBringsColorsBack) {
    for (const bool per_channel : {false, true}) {
        ToneOpLogParams params = log_defaults();
        params.luminanceBased = !per_channel;
        params.whiteBalanceOn = miTRUE;
        params.whiteBalance = {1, 0.9f, 0.7f, 1};
        const LogMapping m = log_mapping(params);
        for (float level = 1e-4f; level < 101; level *= 1.7f) { // six decades
            const miColor color = {level, level * 0.5f, level * 0.25f, 0.5f};
            const miColor back = unmap_log(m, map_log(m, color));
            EXPECT_NEAR(back.r / color.r, 1, 1e-4) << level;
            EXPECT_NEAR(back.g / color.g, 1, 1e-4) << level;
            EXPECT_NEAR(back.b / color.b, 1, 1e-4) << level;
            EXPECT_EQ(back.a, color.a);
        }
        expect_near(unmap_log(m, {-1, 0, 0, 1}), {0, 0, 0, 1}, 0);
        EXPECT_TRUE(std::isfinite(unmap_log(m, {50, 50, 50, 1}).r)); // brighter than the curve ever gets
    }
    ToneOpLogParams unlit = log_defaults(); // which gives no colours to bring back
    unlit.physicalScale = 0;
    unlit.whiteBalanceOn = miTRUE;
    unlit.whiteBalance = grey(0, 1);
    for (const float level : {0.0f, 0.5f})
        EXPECT_TRUE(std::isfinite(unmap_log(log_mapping(unlit), grey(level)).r));
}

TEST(PseudoMapping, PalettesAndLevels) {
    expect_near(pseudo_color(0, 100), {0.003890991f, 0.01939416f, 0.9960938f, 1}, 1e-6f);
    expect_near(pseudo_color(50, 100), {0.01164258f, 0.9960938f, 0.003890991f, 1}, 2e-6f);
    expect_near(pseudo_color(99, 100), {0.9960938f, 0.04342407f, 0.003890991f, 1}, 2e-6f);
    EXPECT_EQ(pseudo_grey(50, 100), (miColor{0.5f, 0.5f, 0.5f, 1}));
    EXPECT_EQ(pseudo_grey(99, 100), (miColor{0.98828125f, 0.98828125f, 0.98828125f, 1}));
    EXPECT_EQ(pseudo_levels(0), 100);
    EXPECT_EQ(pseudo_levels(1000000), 1000000);
    const struct {
        float low, high;
        int levels;
        bool linear, foot_candles;
        float value;
        int level;
    } cases[] = {{6, 200, 100, true, false, 50, 22},         {6, 200, 100, false, false, 50, 59},
                 {6, 200, 100, false, false, 5, 0},          {6, 200, 100, true, false, 1e9f, 99},
                 {6, 200, 256, false, false, 199, 255},      {200, 6, 100, true, false, 100, 0},
                 {6, 200, 100, false, true, 50, 0},          {6, 200, 100, false, true, 300, 43},
                 {6, 200, 1, true, false, 100, 0},           {-1, 200, 100, false, false, 50, 0},
                 {6, 200, 100, true, false, not_a_number, 0}};
    for (const auto& [low, high, levels, linear, foot_candles, value, level] : cases) {
        ToneOpPseudoParams params{};
        params.lowLimit = low;
        params.highLimit = high;
        params.levels = levels;
        params.footCandles = foot_candles;
        EXPECT_EQ(pseudo_level(pseudo_mapping(params), linear, value), level) << low << " " << value;
    }
}

// ---- as shaders

class ToneOperator : public ShaderTest {
protected:
    LiveShader<ToneOpLogParams> log{state, orl_ToneOpLog_init, orl_ToneOpLog_exit};
    const miColor sky{0.5f, 0.25f, 2, 1}, unmapped{9, 8, 7, 6};
    miColor result{};

    ToneOperator() {
        log.params() = log_defaults();
        renderer.trace_color = sky;
    }
    LogMapping& mapping() { return *static_cast<LogMapping*>(log.user_pointer()); }
    miColor mapped() { return map_log(mapping(), sky); }
    miColor shade_as(miShader_type type, miColor color = {}) {
        renderer.answer(miQ_FUNC_CALLTYPE, static_cast<int>(type));
        result = color;
        EXPECT_TRUE(orl_ToneOpLog(&result, state, &log.params()));
        return result;
    }
    // An eye ray that ends in a sky that leaves its own colour to be shown.
    void trace_into_sky(bool hits, const SkyHdrRecord& answer) {
        renderer.mi_trace_eye = [=, this](miColor* color, miState* s, miVector*, miVector*) {
            s->pri = hits ? s : nullptr;
            if (SkyHdrRecord* const record = find_record(s, keys::sky_is_hdr))
                *record = answer;
            *color = sky;
            return miTRUE;
        };
    }
};

TEST_F(ToneOperator, LetsTheSkyShowThroughUnmapped) {
    log.start();
    const miColor other_alpha{sky.r, sky.g, sky.b, 0.5f}, other_green{sky.r, 0.3f, sky.b, sky.a};
    const struct {
        bool process_background, hits, consumed, valid;
        miColor returned;
        bool unmapped;
    } cases[] = {
        {false, false, false, true, sky, true},         {true, false, false, true, sky, false},
        {false, true, false, true, sky, false},         {false, false, true, true, sky, false},
        {false, false, false, false, sky, false},       {false, false, false, true, other_alpha, false},
        {false, false, false, true, other_green, false}};
    for (const auto& c : cases) {
        mapping().processBackground = c.process_background;
        trace_into_sky(c.hits, {c.consumed, c.valid, c.returned, unmapped});
        EXPECT_EQ(shade_as(miSHADER_LENS), c.unmapped ? unmapped : mapped());
        EXPECT_FALSE(find_record(state, keys::tone_operator) || find_record(state, keys::sky_is_hdr));
    }
    // In an environment the operator maps nothing, but shows the sky's own colour.
    mapping().processBackground = miFALSE;
    state->type = miRAY_ENVIRONMENT;
    EXPECT_EQ(shade_as(miSHADER_ENVIRONMENT, sky), sky);
    const ScopedRecord record(state, keys::sky_is_hdr, {miFALSE, miTRUE, sky, unmapped});
    EXPECT_EQ(shade_as(miSHADER_ENVIRONMENT, sky), unmapped);
    mapping().processBackground = miTRUE;
    EXPECT_EQ(shade_as(miSHADER_ENVIRONMENT, sky), mapped());
    state->type = miRAY_EYE;
    EXPECT_EQ(shade_as(miSHADER_ENVIRONMENT, sky), mapped());
}

} // namespace
