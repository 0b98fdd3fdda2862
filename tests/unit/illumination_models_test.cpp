// The contract that every illumination model keeps, and what is each model's own.
#include "anisotropic.h"
#include "illumination_fixture.h"
#include "shading_terms.h"

#include <barrier>
#include <random>
#include <tuple>

using namespace orl;

namespace {

class Contract : public ModelTest, public testing::WithParamInterface<Model> {
protected:
    std::mt19937 random{1};

    Contract() { model = GetParam(); }
    float uniform(float lowest, float highest) {
        return std::uniform_real_distribution<float>(lowest, highest)(random);
    }
    // Parameters within their ranges, with `spoiled` one in twenty far outside, and a viewer.
    void randomise(bool spoiled) {
        for (const decl::Field& field : model.shader->fields)
            for (int i = 0; i < field.value.count; ++i) {
                const float odd[] = {not_a_number, infinite, -infinite, 1e30f, -1e30f};
                const float value = uniform(std::max(static_cast<float>(field.range.lowest), 0.0f),
                                            std::min(static_cast<float>(field.range.highest), 1.0f));
                const bool real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR;
                put(field, i, spoiled && real && random() % 20 == 0 ? odd[random() % 5] : value);
            }
        look_from(uniform(0, 89), uniform(0, 360));
    }
    Lamp lamp(float lowest, float highest) { // angles from the normal
        return {{uniform(0, 4), uniform(0, 4), uniform(0, 4), 0},
                {from(uniform(lowest, highest), uniform(0, 360))}};
    }
};

TEST_P(Contract, NeverNegativeOrNotANumber) {
    for (int k = 0; k < 100000; ++k) {
        randomise(true);
        values.selfIlluminationColorOn = k % 2;
        Lamp shaped = lamp(0, 100);
        shaped.told = {1, uniform(-0.01f, 1), k % 7 == 0, static_cast<miInteger>(random() % 4)};
        shade({lamp(0, 180), shaped});
        for (const miColor& c : {record.ambient, record.diffuse, record.specular, record.selfIllumination,
                                 record.extraDiffuse, record.result, grey(record.diffuseLightLevel)})
            ASSERT_TRUE(c.r >= 0 && c.g >= 0 && c.b >= 0 && c.r + c.g + c.b < infinite)
                << k << testing::PrintToString(record.diffuse) << testing::PrintToString(c);
    }
}

TEST_P(Contract, LightAndHighlights) {
    for (int k = 0; k < 1000; ++k) {
        randomise(false);
        const Lamp whole = lamp(0, 90), other = lamp(0, 180);
        Lamp half = whole;
        half.color = {whole.color.r / 2, whole.color.g / 2, whole.color.b / 2, 0};
        const IllumRecord one = shade({whole, other}), split = shade({half, other, half});
        expect_near(split.diffuse, one.diffuse, 2e-6f); // up to 10
        expect_near(split.specular, one.specular, 2e-6f);
        expect_near(split.extraDiffuse, one.extraDiffuse, 2e-6f);
        EXPECT_NEAR(split.diffuseLightLevel, one.diffuseLightLevel, 1e-4f);

        shade({lamp(90.01f, 180)}); // from behind
        EXPECT_TRUE(intensity(record.diffuse) == 0 && intensity(record.specular) == 0);

        Lamp bent = lamp(0, 89);
        bent.told = {1, 0.4f, 0, 3};
        if (set("soften", 0)) {
            const miColor plain = shade({bent}).specular;
            set("soften", 0.4f); // acts below it
            EXPECT_EQ(shade({bent}).specular, plain);
            set("soften", 0.8f);
            EXPECT_TRUE(intensity(plain) < 1e-10f || intensity(shade({bent}).specular) != intensity(plain));
        }
        // The highlight stands by the light's own angle; only Ward's is a reflectance, times the cosine.
        set("soften", 0);
        const IllumRecord all = shade({bent});
        Lamp flat = bent;
        flat.told->shapedCosine = 0.05f;
        shade({flat});
        const float part = model.unit == std::string_view("shd_ward") ? 8 : 1;
        multiply(record.diffuse, grey(8)), multiply(record.specular, grey(part));
        expect_near(record.diffuse, all.diffuse);
        expect_near(record.specular, all.specular);
        for (const int flags : {0, 1, 2}) {
            bent.told->affectFlags = flags, shade({bent});
            EXPECT_EQ(record.diffuse, flags == 1 ? all.diffuse : miColor{});
            EXPECT_EQ(record.specular, flags == 2 ? all.specular : miColor{});
        }
        bent.told->affectFlags = 3;
        if (set("specularLevel*", 0)) {
            EXPECT_EQ(intensity(shade({bent}).specular), 0);
        }
    }
}

// Half of the diffuse colour's 0.5 shines by itself and takes that half of the light away, or a colour comes
// on top; where the rough surface gathers the light level, it stays.
TEST_P(Contract, SelfIllumination) {
    use("");
    set("diffuse", 0.5f), set("selfIllumColor", {1, 0.5f, 0.25f, 0});
    const std::vector<Lamp> two{lamp(0, 60), {grey(1), {from(0)}, {{1, 1, 1, 3}}}};
    const IllumRecord dark = shade(two);
    const float share = set("selfIllumAmount", 0.5f) ? 0.5f : 0;
    const auto rest = [&](const miColor& c) {
        return miColor{c.r - c.r * share, c.g - c.g * share, c.b - c.b * share, 0};
    };
    shade(two);
    expect_near(record.selfIllumination, grey(0.5f * share));
    expect_near(record.diffuse, rest(dark.diffuse));
    expect_near(record.ambient, rest(dark.ambient));
    EXPECT_NEAR(record.diffuseLightLevel, dark.diffuseLightLevel * (set("roughness", 0) ? 1 : 1 - share),
                1e-5f);
    values.selfIlluminationColorOn = miTRUE, shade(two);
    expect_near(record.selfIllumination, share > 0 ? miColor{1, 0.5f, 0.25f, 0} : grey(0));
    EXPECT_EQ(shade(two).ambient, dark.ambient);
}

INSTANTIATE_TEST_SUITE_P(Models, Contract, testing::ValuesIn(models),
                         [](const auto& at) { return std::string(at.param.unit); });

// ---- the models' own

class Models : public ModelTest {};

TEST_F(Models, AreWhatMaterialsExpect) {
    enum { faceted = 1, conserving = 2, tints_by_diffuse = 4, softens = 8 };
    // Channels as colours and scalars, those behind them that are none or codes of 16, 32 and 128; channels
    // of slots 0 to 15 as digits in base 21; sums of the channels' red for parameters beyond every upper and
    // every lower bound (1 of opacity, 1 of a filter colour that is the material's, -555.55 of orientations).
    const struct {
        const char *name, *kinds, *slots;
        unsigned features;
        int manners;
        float most, least;
    } table[] = {
        {"Blinn", "cccsscsc", "0124356789ab", 32641022, softens, 16.99f, 2},
        {"Phong", "cccsscsc", "0124356789ab", 32641022, softens, 16.99f, 2},
        {"Constant", "cccsscsc", "0124356789ab", 32641022, softens + faceted, 16.99f, 2},
        {"Metal", "cccsscsc-abd", "0124356789ab", 32641022, softens + tints_by_diffuse, 16.99f, 2},
        {"OrenNayarBlinn", "cccsscscss", "01234567abcd", 31604734, softens + conserving, 21.99f, 2},
        {"Anisotropic", "cccssssscsc", "0125489abcde", 31641598, conserving, 577.54f, -553.54994f},
        {"MultiLayer", "ccsscsssscsssscsc", "01465efghijk", 31653886, conserving, 1147.08f, -1109.10009f},
        {"Ward", "cccsssssc-abd", "01254-789abc", 31460302, 0, 13, 2.0002f},
        {"Strauss", "csssc", "-0-1--345678", 10491008, 0, 5, 1},
        {"Translucent", "cccsscsccs", "01234567abcd---9", 6567422, conserving, 21.99f, 1}};
    for (const auto& row : table) {
        const std::string kinds(row.kinds), codes = "cs-abd", digits = "0123456789abcdefghijk";
        use(row.name), set("*", 1e9f);
        maps = [](IllumRecord& r) { r.shade = [](miState*, IllumRecord*, const void*) {}; };
        shade({});
        EXPECT_EQ(record.features, row.features) << row.name;
        EXPECT_EQ(record.channelCount, std::min(kinds.find('-'), kinds.size())) << row.name;
        const int look = record.faceted + conserving * (record.combine == combine_conserving);
        const int tint = tints_by_diffuse * (record.tintReflection == tint_by_diffuse);
        EXPECT_EQ(look + tint + static_cast<int>(8 * record.soften), row.manners) << row.name;
        for (std::size_t k = 0; k < channel_count; ++k) {
            constexpr int code[] = {2, 4, 1, 16, 32, 128};
            EXPECT_EQ(record.channelKind[k], k < kinds.size() ? code[codes.find(kinds[k])] : 1)
                << row.name << k;
        }
        const std::string slots = row.slots + std::string("----");
        for (std::size_t slot = 0; slot < slot_count; ++slot)
            EXPECT_EQ(channel_of(record, static_cast<MapSlot>(slot)),
                      static_cast<int>(digits.find(slots[slot])))
                << row.name << slot;
        for (const float bound : {row.most, row.least}) {
            float sum = 0;
            for (int k = 0; k < record.channelCount; ++k)
                sum += record.channel[k].r;
            EXPECT_NEAR(sum, bound, 1e-5f + 1e-6f * std::fabs(bound)) << row.name;
            set("*", -1e9f), shade({});
        }
    }
}

// Values of these five tests computed in python from the models' formulas, in double precision.

// The cosine between mirrored viewer and light to the power of e = 2^(10 glossiness), or that of the half
// angle to 4 e; where the light's own cosine is below `soften`, times t (2 - t) with t, their quotient.
TEST_F(Models, Highlights) {
    const struct {
        float glossiness, soften, light[2], viewer[2], phong, blinn;
    } table[] = {{0, 0, {60, 30}, {50, 200}, 0.9747290f, 0.9553730f},
                 {0.25f, 0, {40, 0}, {20, 180}, 0.7033714f, 0.7072300f},
                 {0.5f, 0, {40, 0}, {20, 180}, 0.1366300f, 0.1409246f},
                 {1, 0, {31, 0}, {30, 180}, 0.8555831f, 0.8555882f},
                 {0.1f, 0.8f, {70, 0}, {40, 180}, 0.3389628f, 0.0316165f}};
    for (const auto& row : table)
        for (const std::string name : {"Phong", "Constant", "Blinn", "OrenNayarBlinn", "Translucent"}) {
            use(name), set("glossiness", row.glossiness);
            if (!set("soften", row.soften) && row.soften > 0)
                continue; // those of translucent sheets do not fade
            set("specular", 1), set("specularLevel", 2);
            look_from(row.viewer[0], row.viewer[1]);
            shade({{grey(1), {from(row.light[0], row.light[1])}}});
            const float height = name == "Phong" || name == "Constant" ? row.phong : row.blinn;
            EXPECT_NEAR(record.specular.g / (2 * height), 1, 5e-4f) << name << row.glossiness;
        }
}

TEST_F(Models, MetalAtAnyAngle) {
    const miColor amber{0.8f, 0.4f, 0.2f, 1}, pale{1, 0.95f, 0.9f, 1}, dark{0.1f, 0.2f, 0.3f, 1};
    const struct {
        float glossiness, level;
        miColor diffuse;
        float light[2], viewer[2], soften, shaped;
        float r, g, b;
    } table[] = {{0.3f, 2, amber, {50, 20}, {40, 200}, 0, 1, 0.6394825f, 0.6538762f, 0.5119977f},
                 {0.5f, 1, amber, {70, 10}, {60, 170}, 0.4f, 0.3f, 0.4781693f, 0.535419f, 0.4874387f},
                 {0.5f, 2, grey(1), {20, 0}, {50, 180}, 0, 1, 1.584204f, 3.168408f, 4.752612f},
                 {0.2f, 1, pale, {80, 30}, {85, 200}, 0, 1, 1.754669f, 3.151755f, 4.191258f},
                 {0, 3, dark, {75, 90}, {60, 200}, 0, 1, 0.07170989f, 0.2394811f, 0.5033137f},
                 {0.7f, 1, dark, {88, 30}, {85, 215}, 0, 1, 0.0602524f, 0.1243594f, 0.1923211f}};
    for (const auto& row : table) {
        use("Metal"), set("glossiness", row.glossiness), set("specularLevel", row.level);
        set("diffuse", row.diffuse), set("specular", 1), set("soften", row.soften);
        look_from(row.viewer[0], row.viewer[1]);
        shade({{{1, 2, 3, 0}, {from(row.light[0], row.light[1])}, {{1, row.shaped, 0, 3}}}});
        expect_near(record.specular, {row.r, row.g, row.b, 0}, 2e-4f);
    }
}

TEST_F(Models, MetalTakesItsHighlightFromTheDiffuseLight) {
    for (const auto& [level, rest] : {std::pair{0.0f, 1.0f}, {0.75f, 0.25f}, {3.0f, 0.0f}}) {
        use("Metal"), set("specularLevel", level), set("diffuse", 0.5f);
        expect_near(shade({{grey(1), {from(60)}}}).diffuse, grey(0.25f * rest)); // colour times cosine
    }
    set("specularLevel", 1), set("glossiness", 1); // a cosine whose fourth power vanishes
    EXPECT_GE(shade({{grey(1), {from(60)}, {{1, 1e-20f, 0, 3}}}}).specular.r, 0);
}

TEST_F(Models, RoughSurfaces) {
    // roughness, angles of light and viewer and between them about the normal; L1 and L2
    const float table[][6] = {{0, 50, 20, 72.5424f, 1, 0},
                              {0.5f, 60, 30, 0, 0.879011f, 0.124808f},
                              {0.5f, 60, 30, 180, 0.486308f, 0.156010f},
                              {0.5f, 30, 60, 90, 0.679649f, 0.140409f},
                              {1, 45, 45, 60, 0.743387f, 0.141305f},
                              {1, 80, 80, 180, -0.136547f, 0.289090f},
                              {0.5f, 89.5f, 89.75f, 90, 6.497316f, 0.140409f}};
    for (const auto& [roughness, light, viewer, between, once, twice] : table)
        for (const float side : {1.0f, -1.0f}) { // the viewer turned round counts the same
            LightSample sample{};
            sample.dir = from(light), sample.dot_nl = sample.dir.z;
            miVector view = from(viewer, between);
            mi_vector_mul(&view, side);
            const OrenNayar::Share share = OrenNayar(roughness, {0, 0, 1}, view).share(sample);
            EXPECT_NEAR(share.once, once, 2e-5f * (1 + once * once));
            EXPECT_NEAR(share.twice, twice, 2e-5f);
            EXPECT_NEAR(share.of(grey(0.1f)).r, std::max(0.0f, 0.1f * once + 0.01f * twice), 1e-4f);
            EXPECT_LE(share.of(grey(9)).g, 1);
        }
    use("OrenNayarBlinn"), set("roughness", 0), set("diffuse", 0.4f), set("diffuseLevel", 2);
    expect_near(shade({{grey(1), {from(60)}}}).diffuse, grey(0.4f)); // a smooth one: 0.4 * 2 * 0.5
    EXPECT_FLOAT_EQ(record.diffuseLightLevel, 0.5f);
}

TEST_F(Models, BrushedHighlights) {
    const struct {
        const char* name;
        float glossiness[2], anisotropy, orientation, light[2], viewer[2], height;
    } table[] = {{"Anisotropic", {0.5f, 0}, 0.8f, 0, {40, 0}, {20, 180}, 0.9885663f},
                 {"Anisotropic", {0.5f, 0}, 0.8f, 0, {40, 90}, {20, 270}, 0.0008345446f},
                 {"Anisotropic", {0.5f, 0}, 0.8f, 0.9f, {40, 0}, {20, 180}, 0.0008345446f}, // 90 degrees
                 {"Anisotropic", {0.5f, 0}, 0.8f, 0.45f, {40, 45}, {20, 270}, 0.006329861f},
                 {"Anisotropic", {0, 0}, 0, 0, {89.9f, 10}, {60, 190}, 3.0349936f}, // the gain is at its end
                 {"Anisotropic", {1, 0}, 0.5f, 0, {31, 0}, {30, 180}, 1.097359f},
                 {"Ward", {0.2f, 0.9f}, 0, 0, {40, 0}, {20, 180}, 1.9863347f},
                 {"Ward", {0.2f, 0.9f}, 0, 0, {40, 90}, {20, 270}, 0.0012785966f},
                 {"Ward", {0.2f, 0.9f}, 0, 0, {88, 0}, {80, 180}, 0.5390282f},
                 {"Ward", {0.5f, 0.5f}, 0, 0, {60, 30}, {50, 200}, 1.6613424f}};
    for (const auto& row : table) {
        use(row.name), set("specularLevel", 2), set("specular", 1), set("diffuse", 1);
        set("anisotropy", row.anisotropy), set("orientation", row.orientation);
        set("glossiness", row.glossiness[0]), set("glossinessU", row.glossiness[0]);
        set("glossinessV", row.glossiness[1]), set("diffuseLevel", 2);
        look_from(row.viewer[0], row.viewer[1]);
        const miVector dir = from(row.light[0], row.light[1]);
        shade({{grey(1), {dir}}});
        EXPECT_NEAR(record.specular.g / (2 * row.height), 1, 1e-4f) << row.name << row.height;
        const bool ward = row.name[0] == 'W';
        EXPECT_FLOAT_EQ(record.diffuse.g, dir.z * 2 * (ward ? 0.31830987f : 1));
    }
    use("Anisotropic"), set("specularLevel", 1), set("specular", 1);
    const std::vector<Lamp> side{{grey(1), {from(60, 10)}}};
    for (const auto& [mapped, bound] :
         {std::pair{1.5f, 1.0f}, {-1, 0}}) { // maps go no further than parameters
        const auto all = [](float x) { return [x](IllumRecord& r) { r.channel[5].r = r.channel[6].r = x; }; };
        maps = all(bound);
        const miColor expected = shade(side).specular;
        maps = all(mapped);
        EXPECT_EQ(shade(side).specular, expected);
    }
    maps = [](IllumRecord& r) { r.view = from(60, 190); }; // a viewer behind the bent surface
    EXPECT_EQ(shade(side).specular, miColor{});
}

// The mean of the layers' colours 0.3 and 0.6 by their levels, which are 0 where maps bring them below.
TEST_F(Models, MultiLayerTintsReflections) {
    const float tints[][3] = {{0.45f, 1.8f, 0.54f}, {1.8f, 1.8f, 0.45f},  {0, 1.8f, 0.6f},
                              {0, 0, 0.45f},        {0.45f, -0.2f, 0.3f}, {-1, 0.45f, 0.6f}};
    use("MultiLayer"), set("specular1", 0.3f), set("specular2", 0.6f);
    for (const auto& [level_1, level_2, tint] : tints) {
        miColor reflection = grey(1);
        set("specularLevel1", level_1), set("specularLevel2", level_2), shade({});
        for (const auto& [channel, level] : {std::pair{5, level_1}, {10, level_2}})
            record.channel[channel].r = std::min(record.channel[channel].r, level);
        record.tintReflection(state, &record, &reflection);
        expect_near(reflection, grey(tint));
    }
}

TEST_F(Models, GroovesFollowTheTexture) {
    using Corners = scripted::Triangle::Corners;
    const Corners across{{{0, 0, 0}, {0, 1, 0}, {-1, 0, 0}}}; // u grows along -x
    renderer.triangle.points = Corners{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}};
    const auto along = [&](const miVector& normal) {
        context::ChannelCache cache{};
        const TangentFrame frame = tangent_frame(state, normal, cache);
        miVector across_it;
        mi_vector_prod(&across_it, &normal, &frame.along);
        EXPECT_NEAR(mi_vector_dist(&across_it, &frame.across), 0, 1e-6f);
        EXPECT_NEAR(mi_vector_dot(&frame.along, &frame.along), 1, 1e-6f);
        return frame.along;
    };
    const auto expect = [&](const miVector& normal, const miVector& dir) {
        const miVector found = along(normal);
        EXPECT_NEAR(mi_vector_dist(&found, &dir), 0, 1e-6f) << found.x << ' ' << found.y << ' ' << found.z;
    };
    state.bump_x = {{0.6f, 0.8f, 1}};
    expect({0, 0, 1}, {0.6f, 0.8f, 0}); // into the plane
    state.bump_x.clear(), state.use_textures();
    expect({0, 0.6f, 0.8f}, {-1, 0, 0}); // none: round the z axis
    expect({0, 0, 1}, {1, 0, 0});
    renderer.triangle.textures = {across}, renderer.texture_spaces = 1;
    expect({0, 0, 1}, {0, -1, 0});
    // The host's first channel in the second space: the bump basis is of the first.
    struct {
        orl_ObjectData object{};
        miInteger second = 1;
    } spaces;
    spaces.object.uv_channels = {0, 2, {0}};
    miObject shape{};
    shape.userdata = add_record(spaces);
    state->instance = add_instance_with(miNULLTAG, renderer.add(miSCENE_OBJECT, &shape));
    renderer.triangle.textures = {*renderer.triangle.points, across}, renderer.texture_spaces = 2;
    state.bump_x = state.bump_y = {{0.6f, 0.8f, 1}}, state.use_textures();
    expect({0, 0, 1}, {0, -1, 0});
    constexpr miMatrix y_up{1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1}; // its z axis is internal y
    renderer.set_to_space(scripted::Space::object, y_up);
    expect({1, 0, 0}, {0, 0, 1});
}

TEST_F(Models, WardKeepsWhatItFoundOnce) {
    use("Ward");
    shade({});
    exit();
    const auto blocks = renderer.resources().live_blocks;
    std::barrier all_at_once(8); // each thread has a record ready when the first one enters its own
    renderer.mi_mem_int_allocate = [&](const char* file, int line, unsigned size) {
        all_at_once.arrive_and_wait();
        return renderer.mi_mem_int_allocate.unscripted(file, line, size);
    };
    in_threads(8, [&](scripted::State& own) {
        own->instance = state->instance;
        IllumRecord mine = record;
        miColor result{};
        own.run(instance, miSHADER_TEXTURE);
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(model.call(&result, own, &instance.params(), &mine));
    });
    EXPECT_EQ(renderer.resources().live_blocks, blocks + 1);
}

TEST_F(Models, Strauss) {
    const miColor white = grey(1), amber{2, 1, 0, 0};
    const struct {
        float glossiness, metalness, opacity;
        unsigned flags;
        float light, viewer;
        miColor color;
        float diffuse; // of light and surface colours
        miColor specular;
    } table[] = {{0.5f, 0, 1, 0, 30, 30, white, 0.866025f, grey(0.165988f)},
                 {0.5f, 1, 1, 0, 30, 50, white, 0.378886f, {0.0917f, 0.046532f, 0.023947f, 0}},
                 {0.8f, 0.5f, 0.5f, 0, 60, 60, amber, 0.1116f, {0.517074f, 0.258537f, 0.033884f, 0}},
                 {0.8f, 0.5f, 1, 16, 60, 60, amber, 0.1464f, {1.023103f, 0.511551f, 0.067044f, 0}},
                 {1, 1, 1, 0, 40, 40.5f, grey(0.5f), 0, {0.5108345f, 0.261868f, 0.1373845f, 0}},
                 {0.4f, 0, 1, 0, 85, 80, white, 0.087156f, grey(0.066744f)},
                 {0, 1, 1, 0, 30, 30, white, 0.866025f, grey(0)}};
    for (const auto& row : table) {
        use("Strauss"), set("glossiness", row.glossiness), set("metalness", row.metalness);
        set("color", {0.8f, 0.4f, 0.2f, 1});
        maps = [&](IllumRecord& r) { r.channel[3].r = row.opacity, r.mapFlags = row.flags; };
        look_from(row.viewer, 180);
        shade({{row.color, {from(row.light)}}});
        const miColor& c = row.color;
        expect_near(record.diffuse,
                    {0.8f * c.r * row.diffuse, 0.4f * c.g * row.diffuse, 0.2f * c.b * row.diffuse, 0});
        expect_near(record.specular, row.specular, 2e-5f);
        EXPECT_NEAR(record.diffuseLightLevel, intensity(c) * row.diffuse, 1e-5f);
    }
    // Opacity 0.4, of which falloff leaves 0.3; half of a reflection map, seen at 60 degrees.
    look_from(60, 180), set("glossiness", 0.5f), set("metalness", 0.5f);
    renderer.trace_color = grey(1), values.transparencyType = 2;
    maps = [](IllumRecord& r) {
        r.channel[3].r = 0.4f, r.opacity = 0.3f, r.channel[6] = grey(1), r.reflectionAmount = 0.5f;
        r.mapFlags = map_reflection | map_transparent;
    };
    shade({{grey(1), {from(0)}, {{1, 1, 1, 3}}}});
    expect_near(record.reflection, {0.154557f, 0.122458f, 0.106409f, 0});
    expect_near(record.filter[1], grey(0.595f)); // 0.7 * 0.85
    expect_near(record.ambient, {0.15f, 0.075f, 0.0375f, 0});
    expect_near(record.result, {1.117057f, 1.028708f, 0.984534f, 0}); // 0.75 ambient + reflection + 0.85
}

TEST_F(Models, TranslucentSheets) {
    use("Translucent"), set("translucent", 0.5f), set("translucentLevel", 2), set("specularLevel", 1);
    shade({{{1, 2, 3, 0}, {from(120)}}, {grey(1), {from(60)}}, {grey(5), {from(180)}, {{0, 1, 0, 2}}}});
    expect_near(record.extraDiffuse, {0.5f, 1, 1.5f, 0}); // of the first: 0.5 * 2 * cos 60
    EXPECT_EQ(record.opacityFactor, 1);
    std::vector<std::array<float, 4>> sides; // from the front, from the back, and as it was afterwards
    const auto side = [&] {
        sides.push_back({state->normal.z, state->normal_geom.z, state->dot_nd, state->inv_normal ? 1.0f : 0});
    };
    renderer.mi_sample_light = [&](miColor*, miVector*, miScalar*, miState*, miTag, miInteger*) {
        return side(), miFALSE;
    };
    set("translucent", {0, 0, 1, 0}), shade({{}}), side();
    EXPECT_EQ(sides, (decltype(sides){{1, 1, -1, 0}, {-1, -1, 1, 1}, {1, 1, -1, 0}}));
    renderer.trace_color = {1, 2, 3, 0.5f};
    maps = [](IllumRecord& r) { r.opacity = 0.25f, r.mapFlags = map_transparent | map_refraction; };
    values.transparencyType = 2;
    shade({});
    EXPECT_EQ(record.opacityFactor, 0.25f);
    expect_near(record.result, {1, 2, 3, 0});
    expect_near(record.filter[0], grey(0.375f));
}

TEST_F(Models, TransmissionFilter) {
    const miColor f{0.8f, 0.4f, 0.2f, 1}, d{0.5f, 0, 1, 1};
    EXPECT_EQ(filter_mode(0) * 100 + filter_mode(1) * 10 + filter_mode(2), 201);
    const std::tuple<int, float, miColor> table[] = {{1, 0.3f, grey(0.7f)},
                                                     {0, 0.2f, {0.4f, 0.8f, 0, 0}},
                                                     {2, 0, {1, 1, 1, 0}},            // f + 0.8, at most 1
                                                     {2, 0.375f, {1, 0.6f, 0.4f, 0}}, // f + 0.25 * 0.8
                                                     {2, 0.5f, {0.8f, 0.4f, 0.2f, 0}},
                                                     {2, 0.75f, {0.4f, 0, 0, 0}}, // f - 0.5 * 0.8, at least 0
                                                     {2, 1, grey(0)}};
    for (const auto& [mode, amount, result] : table)
        expect_near(transmission_filter(mode, amount, f, d), result);
}

TEST_F(Models, TransparencyIsTraced) {
    use("Blinn"), shade({});
    // Refraction, or nothing behind, ends what is seen straight. Half of 0.75 covers; 0.625 of 0.8.
    values.transparencyType = 2, record.opacity = 0.75f, record.refractionAmount = 0.5f;
    record.channel[channel_of(record, slot_refraction)] = grey(0.8f);
    for (const auto& [flags, covered] : {std::pair{map_refraction | map_transparent, 0.375f}, {0u, 1.0f}}) {
        record.filter[0] = record.filter[1] = record.elementTransparency = grey(1, 1);
        record.mapFlags = flags, record.transmit(state, &record);
        EXPECT_EQ(record.opacityFactor, covered);
        for (const miColor& c : {record.filter[0], record.filter[1], record.elementTransparency})
            EXPECT_EQ(c, miColor{});
    }
    expect_near(record.refraction, grey(0.5f));
    int seen = 0; // reflection level, use_background, use_sky
    renderer.mi_trace_transparent = [&](miColor* result, miState* s) {
        const EnvironmentSwitches* const switches = find_record(s, keys::environment_switches);
        seen = s->reflection_level * 100 + switches->use_background * 10 + switches->use_sky;
        *result = {0.5f, 1, 2, 0.75f};
        return s->type == miRAY_SHADOW ? miFALSE : miTRUE;
    };
    state->reflection_level = 3;
    for (const auto& [type, expected] : {std::pair{miRAY_SHADOW, 211},
                                         {miRAY_TRANSPARENT, 211},
                                         {miRAY_REFLECT, 210},
                                         {miRAY_REFRACT, 210},
                                         {miRAY_EYE, 211}}) {
        state->type = type;
        EXPECT_EQ(trace_transparency(state), (type == miRAY_SHADOW ? miColor{} : miColor{0.5f, 1, 2, 0.75f}));
        EXPECT_TRUE(seen == expected && state->reflection_level == 3) << seen;
    }
    EXPECT_EQ(find_record(state, keys::environment_switches), nullptr);
}

TEST_F(Models, Combines) {
    use("Blinn"), shade({});
    record.ambient = grey(0.1f), record.diffuse = grey(0.2f), record.selfIllumination = grey(0.3f);
    record.extraDiffuse = grey(0.4f), record.opacityFactor = 0.5f;
    record.specular = {0.25f, 0.5f, 2, 0}, record.reflection = grey(0.25f);
    record.refraction = grey(0.03f), record.transmission = grey(0.07f);
    record.additiveTransmission = {0, 0, 0.125f, 0};
    for (const auto combine : {combine_simple, combine_conserving}) { // 0.5 of the surface, 0.1 behind it
        combine(&record);
        expect_near(record.result, {1.1f, 1.35f, 2.975f, 0});
    }
    record.energyConservation = 1;
    combine_conserving(&record); // (1 - 0.5) 0.6 + 0.5; (1 - 0.75) 0.6 + 0.75; 2.25 + 0.125
    expect_near(record.result, {0.8f, 0.9f, 2.375f, 0});
}

} // namespace
