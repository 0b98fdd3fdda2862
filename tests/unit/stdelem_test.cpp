// The standard elements, one row for each type.
#include "orl_stdelem.h"
#include "shader_fixture.h"

using namespace orl;

extern "C" miBoolean orl_StdRenderElements(miColor*, miState*, const StdElementParams*,
                                           orl_RenderElementCall*);
extern "C" void orl_StdRenderElements_exit(miState*, StdElementParams*);

namespace {

class StdElements : public ShaderTest {
protected:
    scripted::ShaderInstance<StdElementParams> element;
    orl_PostIllumData data;
    miColor result{};

    StdElements() {
        InitializeRenderElementPostIllumData(state, &data);
        state.run(element, miSHADER_DEFAULT);
        element->nearDepth = 10;
        element->farDepth = 30;
    }

    miColor run(miInteger type, miInteger phase, void* argument) {
        orl_RenderElementCall call{phase, argument};
        element->type = type;
        EXPECT_TRUE(orl_StdRenderElements(&result, state, &element.params(), &call));
        return result;
    }
    miColor finish(miInteger type, miColor gathered, float distance = 0) {
        orl_ElementFinal final{gathered, distance, 0};
        return run(type, orl_phase_final, &final);
    }
};

TEST_F(StdElements, OfASurface) {
    orl_NodeData node{};
    node.node_id = 0x8000; // saturation 1 - 128/255, hue 0
    node.all_lights = miTRUE;
    set_node(node);
    renderer.lights = {renderer.add_light({{{0.5f, 0.25f, 0, 1}, {}, 0.5f}})};
    renderer.mi_compute_irradiance = [](miColor* color, miState*) {
        *color = {0.25f, 0.125f, 0.5f, 1};
        return miTRUE;
    };
    renderer.mi_luminance = [](miState*, miColor* c) { return c->r + 10 * c->g + 100 * c->b; };
    scripted::State eye;
    eye.camera.environment = renderer.add_shader([](void* color, miState* at, void*) {
        *static_cast<miColor*>(color) = {at->dir.x, at->dir.y, at->dir.z, 1};
        return miTRUE;
    });
    state.set_parent(eye, miRAY_TRANSPARENT);
    eye->dir = {0, 1, 0};
    state->motion = {3, 0, -4};
    data.inputs = {0.5f, 1, 1, orl_weight_refraction, miFALSE};
    data.outputs = {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1},          {2, 2, 2, 1},
                    {3, 2, 1, 1}, {6, 5, 4, 1}, {0.5f, 0.5f, 0.5f, 0}, miFALSE};
    data.reflection = {8, 0, 0, 1};
    data.refraction = {0, 16, 0, 1};
    data.materialId = 1; // hue 128/255: sector 3, 3/255 = 0.0117647 of the next behind
    element->diffuse = element->specular = element->reflection = element->refraction = miTRUE;
    const ScopedRecord tone(
        state, keys::tone_operator,
        {0, [](miColor* c, miState*, void*) { c->r *= 2, c->g *= 2, c->b *= 2; }, nullptr, nullptr});
    const struct {
        ElementType type;
        miColor expected; // tone-mapped ones are doubled; the surface covers half
        bool replaces, shaded;
    } rows[] = {
        {element_alpha, {0, 0, 0, 0.5f}, false, false},
        {element_atmosphere, {0, 0, 0, 0}, false, false},
        {element_background, {0, 2, 0, 1}, true, false},
        {element_blend, {16, 17, 2, 0.5f}, false, true}, // g: 2 (0.5 1 + 0.5 16)
        {element_diffuse, {1, 1, 0, 0.5f}, false, true},
        {element_refraction, {0, 16, 0, 0.5f}, false, true},
        {element_lighting, {0.5f, 0.25f, 0.5f, 0.5f}, false, true}, // 2 (0.5, 0.25, 0.5) 0.5
        {element_matte, {0.5f, 0.5f, 0.5f, 0.5f}, false, false},
        {element_reflection, {16, 0, 0, 0.5f}, false, true},
        {element_ink, {3, 2, 1, 0.5f}, false, true},
        {element_paint, {6, 5, 4, 0.5f}, false, true},
        {element_self_illumination, {2, 2, 2, 0.5f}, false, true},
        {element_shadow, {0.5f, 0.5f, 0.5f, 0.5f}, false, true},
        {element_specular, {0, 0, 2, 0.5f}, false, true},
        {element_z_depth, {0, 0, 0, 0}, true, false},
        {element_hair_and_fur, {0, 0, 0, 0}, true, false},
        {element_illuminance_hdr, {0.5f, 0.25f, 0.5f, 0.5f}, false, true},
        {element_velocity, {1.5f, 0, -2, 0.5f}, false, false},
        {element_material_id, {0, 0.49411765f, 0.5f, 0.5f}, false, false},
        {element_object_id, {0.5f, 0.25098039f, 0.25098039f, 0.5f}, false, false},
        {element_luminance_hdr, {26.5f, 26.5f, 26.5f, 0.5f}, false, true}, // (0.5 + 2.5 + 50) 0.5
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        data.kind = 0;
        data.outputs.elementReplace = miFALSE;
        element->matteMaterial = row.type == element_matte;
        element->matteMaterialId = 1;
        const miColor color = run(row.type, orl_phase_post_illumination, &data);
        EXPECT_NEAR(color.r, row.expected.r, 1e-6f);
        EXPECT_NEAR(color.g, row.expected.g, 1e-6f);
        EXPECT_NEAR(color.b, row.expected.b, 1e-6f);
        EXPECT_EQ(color.a, row.expected.a);
        EXPECT_EQ(data.outputs.elementReplace, row.replaces);
        data.kind = 1;
        EXPECT_EQ(run(row.type, orl_phase_post_illumination, &data), row.shaded ? miColor{} : color);
    }
    EXPECT_EQ(state->dir.z, -1); // put back by the background
    data = {0, {1, 0, 0, 0, miTRUE}, {}, {}, nullptr, 0, {0.25f, 0.5f, 1, 1}, {}, {}};
    EXPECT_EQ(run(element_shadow, orl_phase_post_illumination, &data), (miColor{0.25f, 0.5f, 1, 1}));
    orl_StdRenderElements_exit(state, &element.params()); // of the type it had last
    element->type = element_velocity;
    orl_StdRenderElements_exit(state, &element.params());
    EXPECT_EQ(element->highestSpeed, 0);
}

TEST_F(StdElements, MatteMatches) {
    orl_NodeData node{};
    node.node_id = 5;
    set_node(node);
    data.materialId = 7;
    const auto is_white = [&] { return run(element_matte, orl_phase_post_illumination, &data).r == 1; };
    EXPECT_FALSE(is_white());
    element->matteObject = miTRUE;
    EXPECT_FALSE(is_white());
    element->matteObjectId = 5;
    EXPECT_TRUE(is_white());
    element->matteInverted = miTRUE;
    EXPECT_FALSE(is_white());
    element->matteObject = miFALSE;
    EXPECT_TRUE(is_white());
    element.set_array(element->matteInstances.first, element->matteInstances.count,
                      static_cast<miTag*>(element->matteInstances.elements), {miNULLTAG, state->instance});
    EXPECT_FALSE(is_white());
}

TEST_F(StdElements, FinalPhase) {
    const ScopedRecord tone(
        state, keys::tone_operator,
        {1, [](miColor* c, miState*, void*) { c->r *= 2, c->g *= 2, c->b *= 2; }, nullptr, nullptr});
    const miColor gathered{0.25f, 0.5f, 0.75f, 0.375f};
    EXPECT_EQ(finish(element_atmosphere, gathered), (miColor{0.5f, 1, 1.5f, 0.75f}));
    EXPECT_EQ(finish(element_atmosphere, {0, 0, 0, 0.625f}).a, 1);
    EXPECT_EQ(finish(element_blend, gathered), (miColor{0.5f, 1, 1.5f, 0.375f}));
    EXPECT_EQ(finish(element_specular, gathered), (miColor{0.25f, 0.5f, 0.75f, 0.5f}));
    for (const ElementType type : {element_alpha, element_hair_and_fur})
        EXPECT_EQ(finish(type, {0, 0, 0, 0.5f}), (miColor{0.5f, 0.5f, 0.5f, 0.5f}));
    for (const ElementType type : {element_diffuse, element_reflection, element_lighting})
        EXPECT_EQ(finish(type, gathered), gathered);
    result = {9, 9, 9, 9};
    finish(element_type_count, gathered);
    finish(-1, gathered);
    EXPECT_EQ(result, (miColor{9, 9, 9, 9}));
    EXPECT_TRUE(orl_StdRenderElements(&result, state, &element.params(), nullptr));
}

TEST_F(StdElements, DepthIsARampAndItsRangeIsWrittenAtTheEnd) {
    const long long before = scripted::Renderer::resources().live_blocks;
    const struct {
        float distance, expected;
    } samples[] = {{20, 0.5f}, {25, 0.25f}, {5, 1}, {30, 0}, {31, 0}, {10, 1}, {12.5f, 0.875f}};
    for (const auto& [distance, expected] : samples)
        EXPECT_EQ(finish(element_z_depth, {0, 0, 0, 0}, distance),
                  (miColor{expected, expected, expected, 0}));
    EXPECT_EQ(finish(element_z_depth, {1, 2, 3, 4}), (miColor{1, 2, 3, 4})); // the ray hit nothing
    orl_StdRenderElements_exit(state, &element.params());
    EXPECT_EQ(element->nearestDepth, 5);
    EXPECT_EQ(element->farthestDepth, 31);
    EXPECT_EQ(scripted::Renderer::resources().live_blocks, before);
    orl_StdRenderElements_exit(state, nullptr);
    element->farDepth = 10; // no ramp at all
    EXPECT_EQ(finish(element_z_depth, {}, 10).r, 1);
    orl_StdRenderElements_exit(state, &element.params());
    EXPECT_EQ(element->nearestDepth, 10); // all that was seen was a new largest

    state->motion = {0, 3, 4};
    run(element_velocity, orl_phase_post_illumination, &data);
    state->motion = {0, 1, 0};
    run(element_velocity, orl_phase_post_illumination, &data);
    orl_StdRenderElements_exit(state, &element.params());
    EXPECT_EQ(element->highestSpeed, 5);
}

} // namespace
