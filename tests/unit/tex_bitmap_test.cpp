// The bitmap: where in the image a coordinate leads, which image is shown, and what comes out.
#include "image_filter_fixture.h"
#include "tex_bitmap.h"
#include "uv_map.h"

#include <climits>
#include <cmath>
#include <list>

extern "C" miBoolean orl_Bitmap(miColor*, miState*, const orl::BitmapParams*, orl::OutputRequest*);
INIT_AND_EXIT(orl_Bitmap, orl::BitmapParams);

namespace {

using namespace orl;

constexpr Placement whole{0, 0, 1, 1, false, false};

TEST(BitmapGeometry, NoNumberLeadsOutOfTheImage) {
    constexpr miScalar values[] = {0, 0.5f, -3, 8388607.5f, 3e9f, -3e9f, 1e38f, infinite, not_a_number};
    for (const miScalar a : values)
        for (const miScalar b : values)
            for (const Placement& placement :
                 {whole, Placement{a, b, 1, 1, true, false}, Placement{0, 0, b, a, true, false},
                  Placement{0, a, b, 1, true, true}}) {
                const Footprint part = image_footprint(placement, a, b, b, a);
                const bool inside = part.u >= 0 && part.u <= 1 && part.v >= 0 && part.v <= 1;
                EXPECT_TRUE(part.coverage == 0 || (part.coverage <= 1 && inside)) << a << ' ' << b;
            }
}

class Bitmap : public ShaderTest {
protected:
    LiveShader<BitmapParams> bitmap{state, orl_Bitmap_init, orl_Bitmap_exit};
    BitmapParams& params = bitmap.params();

    // Where the generator samples; slopes are differences over the filter widths.
    miScalar at_u = 0.5f, width = 0.03125f;
    miVector tangent_u{1, 0, 0}, tangent_v{0, 1, 0};
    context::Selector ray = context::Selector::surface; // what the generator was told
    OutputRequest asked;
    std::list<stage::ImageMemory> images;

    Bitmap() {
        renderer.answer(miQ_DECL_VERSION, 4);
        read_images(renderer);
        params.uvGenerator = renderer.add_shader([this](void* result, miState* s, void* arg) {
            const auto& ask = *static_cast<const UvBumpRequest*>(arg);
            EXPECT_EQ(ask.magic, 152457728u);
            ray = ask.request->selector;
            auto* const c = static_cast<miColor*>(result);
            ask.use_filtered ? ask.filtered(c, s, ask.data, at_u, 0.5f, width, width)
                             : ask.plain(c, s, ask.data, at_u, 0.5f);
            if (auto* const record = requested<UvDerivRecord>(s)) {
                EXPECT_TRUE(record->flags == 1 && ask.request->output == OutputRequest::vector);
                record->dPdu = tangent_u;
                record->dPdv = tangent_v;
                miColor right, up;
                ask.plain(&right, s, ask.data, at_u + width, 0.5f);
                ask.plain(&up, s, ask.data, at_u, 0.5f + width);
                *c = {(c->r - right.r) / width, (c->r - up.r) / width, 0, 0};
            }
            return miTRUE;
        });
    }

    miTag add_image(const miColor& c) {
        stage::put_image_color(images.emplace_back(1, 1, miIMG_TYPE_RGBA).image(), c, 0, 0);
        return renderer.add(miSCENE_IMAGE, images.back().image());
    }

    miColor sample(OutputRequest request = OutputRequest::color, miBoolean expected = miTRUE) {
        miColor result{7, 7, 7, 7};
        asked = request;
        EXPECT_EQ(orl_Bitmap(&result, state, &params, &asked), expected);
        return result;
    }

    // Weights have 12 bits, colours 8.
    static void expect_near(const miColor& actual, const miColor& expected, const std::string& name) {
        const double color = std::hypot(actual.r - expected.r, actual.g - expected.g, actual.b - expected.b);
        EXPECT_LT(color + std::fabs(actual.a - expected.a), 0.005) << name << testing::PrintToString(actual);
    }

    // Object at hand with that many particles, of which number `particle` was hit.
    void set_particles(miInteger entries, miUint particle) {
        orl_ObjectData record{};
        record.particle_data = add_record(orl_IntegerArray{1, entries, {0}});
        miObject object{};
        object.userdata = add_record(record);
        state->instance = add_instance_with(miNULLTAG, renderer.add_copy(miSCENE_OBJECT, object));
        renderer.mi_vquery = [=, this](miQ_type code, miState* s, miTag tag, void* result, va_list more) {
            static constexpr int index[] = {-1, -1, 0};
            static miUint word;
            if (code != miQ_PRI_DATA)
                return renderer.mi_vquery.unscripted(code, s, tag, result, more);
            *static_cast<int*>(result) = 3;
            *va_arg(more, const int**) = index;
            *va_arg(more, const miUint**) = &(word = particle);
            return miTRUE;
        };
    }
};

TEST_F(Bitmap, ChoosesFromItsLists) {
    const auto grey = [this](float value) { return add_image({value, value, value, 1}); };
    bitmap.set_array(params.imageList.first, params.imageList.count, params.imageList.elements,
                     {grey(0.2f), miTag{miNULLTAG}, grey(0.6f)});
    bitmap.set_array(params.hostImageList.first, params.hostImageList.count, params.hostImageList.elements,
                     {grey(0.4f), grey(0.8f)});
    params.image = grey(1);
    bitmap.start();
    const struct {
        miInteger index, entries; // no entries: not by the particle
        miUint particle;
        miBoolean from_host;
        float expected; // 0: the empty element, transparent
    } cases[] = {{0, 0, 0, 0, 0.2f},
                 {1, 0, 0, 0, 0},
                 {5, 0, 0, 0, 0.6f},
                 {-1, 0, 0, 0, 0.6f},
                 {INT_MIN, 0, 0, 0, 0},       // = -715827883 * 3 + 1
                 {0, 5, 7, 0, 0.6f},          // 7 mod 5 = 2
                 {0, 5, 4, 0, 0},             // 4 mod 3 = 1
                 {1, 5, 4294967293, 0, 0.2f}, // = 858993458 * 5 + 3, and 3 mod 3 = 0
                 {1, 0, 0, 1, 0.8f},
                 {4, 0, 0, 1, 0.4f}};
    for (const auto& [index, entries, particle, from_host, e] : cases) {
        set_particles(entries > 0 ? entries : 5, particle);
        params.perParticleImage = entries > 0;
        params.hostImages = from_host;
        (from_host ? params.hostImageIndex : params.imageIndex) = index;
        expect_near(sample(), {e, e, e, e > 0 ? 1.0f : 0.0f}, std::to_string(index));
    }
}

TEST_F(Bitmap, WritesColourMonoAndAlpha) {
    // The colour (0.8, 0.4, 0) with the alpha 0.6; its intensity is 0.4. The stage adds 0.1 to the colour and
    // halves the alpha. At u = 0 a placed image covers half of the footprint.
    const miTag stage = renderer.add_shader([](void* result, miState*, void*) {
        auto& c = *static_cast<miColor*>(result);
        c = {c.r + 0.1f, c.g + 0.1f, c.b + 0.1f, c.a * 0.5f};
        return miTRUE;
    });
    bitmap.set_array(params.imageList.first, params.imageList.count, params.imageList.elements,
                     {add_image({0.8f, 0.4f, 0, 0.6f})});
    params.cropWidth = params.cropHeight = 1;
    params.cropOn = params.cropPlace = params.hostImages = miTRUE; // whose list is empty
    bitmap.start();
    at_u = 0;
    constexpr auto color = OutputRequest::color, mono = OutputRequest::mono;
    const struct {
        const char* name;
        OutputRequest request;
        miBoolean straight, grey, staged, half;
        miColor expected;
    } cases[] = {
        {"colour", color, 1, 0, 0, 0, {0.8f, 0.4f, 0, 0.6f}},
        {"premultiplied", color, 0, 0, 0, 0, {0.48f, 0.24f, 0, 0.6f}},
        {"half covered", color, 1, 0, 0, 1, {0.8f, 0.4f, 0, 0.3f}},
        {"output stage", color, 0, 0, 1, 0, {0.27f, 0.15f, 0.03f, 0.3f}},
        {"alpha and output stage", color, 0, 1, 1, 0, {0.3f, 0.3f, 0.3f, 0.3f}},
        {"alpha, half covered", mono, 0, 1, 0, 1, {0.3f, 0.3f, 0.3f, 0.3f}},
        {"mono", mono, 1, 0, 0, 0, {0.4f, 0.4f, 0.4f, 0.4f}},
        {"mono and output stage", mono, 0, 0, 1, 0, {0.15f, 0.15f, 0.15f, 0.15f}},
    };
    for (const auto& test : cases) {
        params.premultipliedOff = test.straight;
        params.alphaAsGray = test.grey;
        params.output = test.staged ? stage : miTag{miNULLTAG};
        params.filterType = test.half ? 0 : no_filtering;
        expect_near(sample(test.request), test.expected, test.name);
    }
}

TEST_F(Bitmap, JitterMovesThePlacedImageInEachTile) {
    // The image is at 0.25 from the left and 0.125 from the top, 0.25 high, and moves by a quarter and a half
    // of the 1st and 4th number after the seed (14693 i - 3251 j - 1328) & 32767 of tile (i, j), in 32767ths,
    // from a program of its own with whole numbers of any size.
    const struct {
        miScalar i, j, left, lower;
    } cases[] = {{1, 0, 0.333278f, 0.266818f},   // seed 13365: 10915, 23473
                 {0, 1, 0.452612f, 0.234549f},   // 28189: 26556, 25588
                 {-2, 5, 0.462882f, 0.211915f}}; // 18567: 27902, 27071
    params.image = add_image({1, 1, 1, 1});
    params.cropU = params.jitterU = params.cropHeight = 0.25f;
    params.cropV = 0.125f;
    params.cropWidth = params.jitterV = 0.5f;
    params.cropOn = params.cropPlace = miTRUE;
    bitmap.start();
    miScalar u = 0, v = 0;
    bool asks_for_the_coordinate = false;
    params.uvGenerator = renderer.add_shader([&](void* result, miState* s, void* arg) {
        const auto& ask = *static_cast<const UvBumpRequest*>(arg);
        if ((asks_for_the_coordinate = !asks_for_the_coordinate))
            *static_cast<miVector*>(result) = {u, v, 0};
        else
            ask.plain(static_cast<miColor*>(result), s, ask.data, u - std::floor(u), v - std::floor(v));
        return miTRUE;
    });
    for (const auto& [i, j, left, lower] : cases)
        for (const auto& [right, up] : {std::pair{1e-4f, 1e-4f}, {-1e-4f, 1e-4f}, {1e-4f, -1e-4f}}) {
            u = i + left + right;
            v = j + lower + up;
            EXPECT_EQ(sample().a > 0.5f, right > 0 && up > 0) << i << ' ' << right << ' ' << up;
        }
}

// The image is a ramp of heights. Coordinates grow by 1 over its 64 pixels.
TEST_F(Bitmap, ABumpIsAHundredthOfTheSlopeDownwards) {
    miImg_image* const ramp = images.emplace_back(64, 64, miIMG_TYPE_RGBA_FP).image();
    for (int i = 0; i < 64 * 64; ++i) {
        const float height = (0.75f * static_cast<float>(i % 64) + 0.25f * static_cast<float>(i / 64)) / 64;
        stage::put_image_color(ramp, {height, height, height, 1}, i % 64, i / 64);
    }
    params.image = renderer.add(miSCENE_IMAGE, ramp);
    params.filterType = no_filtering;
    bitmap.start();
    int owner = 5;
    state->user = &owner;
    state->user_size = sizeof owner;
    const auto expect_bump = [&](float x, float y, const char* name) {
        const miColor bump = sample(OutputRequest::vector);
        EXPECT_LT(std::hypot(bump.r - x, bump.g - y, bump.b), 5e-5f) << name << testing::PrintToString(bump);
        EXPECT_TRUE(state->user == &owner && state->user_size == sizeof owner) << name;
    };
    expect_bump(-0.0075f, -0.0025f, "ramp");
    tangent_u = {0, 1, 0}; // a texture that is turned by a right angle
    tangent_v = {-1, 0, 0};
    expect_bump(0.0025f, -0.0075f, "turned");
    params.output = renderer.add_shader([](void* result, miState*, void* arg) {
        EXPECT_EQ(*static_cast<OutputRequest*>(arg), OutputRequest::vector);
        mi_vector_neg(static_cast<miVector*>(result));
        return miTRUE;
    });
    state->type = miRAY_LIGHT;
    expect_bump(-0.0025f, 0.0075f, "inverted by the output stage");
    EXPECT_EQ(ray, context::Selector::light_ray);
    params.alphaAsGray = miTRUE;
    expect_bump(0, 0, "the alpha is flat");
}

TEST_F(Bitmap, MissingInputs) {
    params.image = add_image({1, 1, 1, 1});
    params.uvGenerator = miNULLTAG;
    bitmap.start();
    const miColor nothing{0, 0, 0, 0}, no_bump{0, 0, 0, 7}, untouched{7, 7, 7, 7};
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(sample(), nothing);
        EXPECT_EQ(sample(OutputRequest::vector, miFALSE), no_bump);
    }
    EXPECT_EQ(errors(), (std::vector<std::string>{"\"shader\" requires uv coordinate shader"}));
    for (const int unknown : {3, -1, INT_MAX})
        EXPECT_EQ(sample(OutputRequest{unknown}), untouched) << unknown;
    params.uvGenerator = renderer.add_shader([](void* result, miState*, void*) {
        *static_cast<miColor*>(result) = {1, not_a_number, 1, 1};
        return miFALSE;
    });
    EXPECT_EQ(sample(), nothing);
    EXPECT_EQ(sample(OutputRequest::vector), no_bump);
}

TEST_F(Bitmap, GammaIsItsOwnOrThatOfTheOptions) {
    const struct {
        miInteger version; // 3 has no gamma of its own
        miScalar gamma, of_options, expected;
    } cases[] = {{4, 1, 2, 0.502f},
                 {4, 2, 1, 0.252f},
                 {4, not_a_number, 2, 0.252f},
                 {3, 1, 2, 0.252f},
                 {4, 0, 0, 0.502f}};
    for (const auto& test : cases) { // of 128 / 255
        renderer.answer(miQ_DECL_VERSION, test.version);
        state.options.gamma = test.of_options;
        LiveShader<BitmapParams> other(state, orl_Bitmap_init, orl_Bitmap_exit);
        other->image = add_image({0.5f, 0.5f, 0.5f, 1});
        other->uvGenerator = params.uvGenerator;
        other->gamma = test.gamma;
        other.start();
        miColor result{};
        EXPECT_TRUE(orl_Bitmap(&result, state, &other.params(), nullptr));
        EXPECT_NEAR(result.r, test.expected, 0.003f);
    }
}

} // namespace
