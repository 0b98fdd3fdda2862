// Conversions between spaces, and the current triangle.
#include "stage_api_scene.h"

namespace {

using namespace stage_test;

using Conversion = void (*)(miState*, miVector*, miVector*);
enum class Kind { point, vector, normal };

// A conversion between internal space and one whose matrices to and from world space stand beside it.
struct Case {
    const char* name;
    Conversion convert;
    Kind kind;
    bool to;
    Matrix4 to_world, from_world;
};

const Matrix4 unit = scaling(1, 1, 1);

std::vector<Case> cases() {
    const Matrix4 o = object_place.to_world(), oi = object_place.from_world();
    const Matrix4 c = camera_place.to_world(), ci = camera_place.from_world();
    const Matrix4 l = light_place.to_world(), li = light_place.from_world();
    using enum Kind;
    return {
        {"mi_point_to_world", mi_point_to_world, point, true, unit, unit},
        {"mi_point_to_camera", mi_point_to_camera, point, true, c, ci},
        {"mi_point_to_object", mi_point_to_object, point, true, o, oi},
        {"mi_point_to_light", mi_point_to_light, point, true, l, li},
        {"mi_point_from_world", mi_point_from_world, point, false, unit, unit},
        {"mi_point_from_camera", mi_point_from_camera, point, false, c, ci},
        {"mi_point_from_object", mi_point_from_object, point, false, o, oi},
        {"mi_point_from_light", mi_point_from_light, point, false, l, li},
        {"mi_vector_to_world", mi_vector_to_world, vector, true, unit, unit},
        {"mi_vector_to_camera", mi_vector_to_camera, vector, true, c, ci},
        {"mi_vector_to_object", mi_vector_to_object, vector, true, o, oi},
        {"mi_vector_to_light", mi_vector_to_light, vector, true, l, li},
        {"mi_vector_from_world", mi_vector_from_world, vector, false, unit, unit},
        {"mi_vector_from_camera", mi_vector_from_camera, vector, false, c, ci},
        {"mi_vector_from_object", mi_vector_from_object, vector, false, o, oi},
        {"mi_vector_from_light", mi_vector_from_light, vector, false, l, li},
        {"mi_normal_to_world", mi_normal_to_world, normal, true, unit, unit},
        {"mi_normal_to_camera", mi_normal_to_camera, normal, true, c, ci},
        {"mi_normal_to_object", mi_normal_to_object, normal, true, o, oi},
        {"mi_normal_to_light", mi_normal_to_light, normal, true, l, li},
        {"mi_normal_from_world", mi_normal_from_world, normal, false, unit, unit},
        {"mi_normal_from_camera", mi_normal_from_camera, normal, false, c, ci},
        {"mi_normal_from_object", mi_normal_from_object, normal, false, o, oi},
    };
}

// What the conversion must give, through world space, in double precision.
Vector3 expected(const Case& c, const Matrix4& internal_to_world, const Matrix4& world_to_internal,
                 const Vector3& v) {
    const Matrix4 there =
        c.to ? product(internal_to_world, c.from_world) : product(c.to_world, world_to_internal);
    const Matrix4 back =
        c.to ? product(c.to_world, world_to_internal) : product(internal_to_world, c.from_world);
    switch (c.kind) {
    case Kind::point:
        return times(v, 1, there);
    case Kind::vector:
        return times(v, 0, there);
    default:
        return times(v, 0, transposed(back));
    }
}

class Spaces : public testing::TestWithParam<bool> {};

TEST_P(Spaces, ConversionsAgreeWithAProductOfMatrices) {
    Stage stage(GetParam());
    const Matrix4 internal_to_world = GetParam() ? camera_place.to_world() : unit;
    const Matrix4 world_to_internal = GetParam() ? camera_place.from_world() : unit;
    for (const Case& c : cases()) {
        miVector v = {0.75f, -1.25f, 2.5f}, r;
        c.convert(&stage.state, &r, &v);
        // Coordinates of some 30 in single precision, after two products.
        expect_near(r, expected(c, internal_to_world, world_to_internal, {0.75, -1.25, 2.5}), 3e-5, c.name);
        miVector in_place = v;
        c.convert(&stage.state, &in_place, &in_place);
        EXPECT_EQ(std::memcmp(&in_place, &r, sizeof r), 0)
            << c.name << ": result in the place of the argument";
    }
}

// A normal has to stay perpendicular to what it was perpendicular to; in a mirrored, unevenly scaled space a
// vector's conversion does not do that.
TEST_P(Spaces, NormalsStayPerpendicular) {
    Stage stage(GetParam());
    miVector normal = {1, 2, -1}, tangent = {3, -1, 1}, n, t;
    mi_normal_to_object(&stage.state, &n, &normal);
    mi_vector_to_object(&stage.state, &t, &tangent);
    EXPECT_NEAR(mi_vector_dot(&n, &t), 0.0f, 1e-5f);
    mi_vector_to_object(&stage.state, &n, &normal);
    EXPECT_GT(std::fabs(mi_vector_dot(&n, &t)), 0.1f);
}

TEST_P(Spaces, RasterFollowsTheCamera) {
    Stage stage(GetParam());
    const Vector3 in_camera = {0.4, -0.3, -4.0};
    const Matrix4 internal_to_camera = GetParam() ? unit : camera_place.from_world();
    // The inverse of a rotation and translation is camera_place.to_world().
    const Vector3 internal = GetParam() ? in_camera : times(in_camera, 1, camera_place.to_world());
    expect_near({0.4f, -0.3f, -4.0f}, times(internal, 1, internal_to_camera), 1e-6,
                "the test's own matrices");
    miVector p = {static_cast<float>(internal[0]), static_cast<float>(internal[1]),
                  static_cast<float>(internal[2])};
    miVector r;
    mi_point_to_raster(&stage.state, &r, &p);
    // On the image plane at distance 2: x 0.2 of width 1.5, y -0.15 of height 1.5 / 1.25 = 1.2.
    EXPECT_NEAR(r.x, (0.2 / 1.5 + 0.5) * 320 + 3, 2e-3);
    EXPECT_NEAR(r.y, (-0.15 / 1.2 + 0.5) * 240 - 5, 2e-3);

    stage.camera->as<miCamera>()->orthographic = miTRUE;
    mi_point_to_raster(&stage.state, &r, &p);
    EXPECT_NEAR(r.x, (0.4 / 1.5 + 0.5) * 320 + 3, 2e-3);
    EXPECT_NEAR(r.y, (-0.3 / 1.2 + 0.5) * 240 - 5, 2e-3);
}

// Half-way through the shutter interval the blend of both matrices is a plain mean here: only the
// translation differs.
TEST_P(Spaces, ObjectSpaceMovesWithTheShutter) {
    Stage stage(GetParam(), true);
    stage.state.time = 0.5f;
    Placement middle = object_place;
    middle.move = {5.5, 0.0, 2.0};
    const Matrix4 to_internal =
        GetParam() ? product(middle.to_world(), camera_place.from_world()) : middle.to_world();
    miVector v = {0.5f, -0.5f, 1.0f}, r, back;
    mi_point_from_object(&stage.state, &r, &v);
    expect_near(r, times({0.5, -0.5, 1.0}, 1, to_internal), 3e-5, "from object space");
    mi_point_to_object(&stage.state, &back, &r);
    expect_near(back, {0.5, -0.5, 1.0}, 3e-5, "and back");

    const miScalar* matrix = nullptr;
    ASSERT_TRUE(mi_query(miQ_TRANS_OBJECT_TO_INTERNAL, &stage.state, miNULLTAG, &matrix));
    for (std::size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(matrix[i], to_internal[i], 1e-5) << i;
}

TEST_P(Spaces, TheSpaceStaysWhenAShaderClearsThePrimitive) {
    Stage stage(GetParam());
    miVector v = {1, 2, 3}, before, after;
    mi_point_to_object(&stage.state, &before, &v);
    stage.state.pri = nullptr;
    mi_point_to_object(&stage.state, &after, &v);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof after), 0);
}

INSTANTIATE_TEST_SUITE_P(InternalSpace, Spaces, testing::Bool(),
                         [](const auto& param) { return param.param ? "Camera" : "World"; });

// Triangle 1 has the corners 0, 2 and 3.
TEST(Triangle, CornerValuesPointIntoTheTessellation) {
    Stage stage(false);
    const float* vertices = stage.object->geometry->vertices.data();
    struct Row {
        int which, space, offset;
    };
    for (const auto& [which, space, offset] :
         {Row{'p', 0, 0}, {'n', 0, 3}, {'t', 0, 6}, {'t', 1, 9}, {'x', 0, 12}, {'y', 0, 15}}) {
        miVector *a = nullptr, *b = nullptr, *c = nullptr;
        ASSERT_TRUE(mi_tri_vectors(&stage.state, which, space, &a, &b, &c)) << static_cast<char>(which);
        EXPECT_EQ(&a->x, vertices + offset);
        EXPECT_EQ(&b->x, vertices + 2 * 18 + offset);
        EXPECT_EQ(&c->x, vertices + 3 * 18 + offset);
    }
    miVector sentinel;
    for (const auto& [which, space] : {std::pair{'m', 0}, {'t', 2}, {'t', -1}, {'x', 1}, {'q', 0}}) {
        miVector* a = &sentinel;
        EXPECT_FALSE(mi_tri_vectors(&stage.state, which, space, &a, &a, &a)) << which << space;
        EXPECT_EQ(a, &sentinel);
    }
    stage.state.pri = nullptr;
    miVector* a = &sentinel;
    EXPECT_FALSE(mi_tri_vectors(&stage.state, 'p', 0, &a, &a, &a));
}

TEST(Triangle, TextureCoordinatesAreInterpolated) {
    Stage stage(false);
    // Weights 1/4, 1/4, 1/2 of the corners (-1, -1), (1, 1), (-1, 1): space 1 holds (x, 10, y).
    miScalar value[3];
    ASSERT_TRUE(mi_texture_interpolate(&stage.state, 1, value));
    EXPECT_FLOAT_EQ(value[0], -0.5f);
    EXPECT_FLOAT_EQ(value[1], 10.0f);
    EXPECT_FLOAT_EQ(value[2], 0.5f);
    EXPECT_FALSE(mi_texture_interpolate(&stage.state, 2, value));
}

TEST(Triangle, AnotherTriangleCanBeSet) {
    Stage stage(false);
    mi_state_set_pri(&stage.state, &stage.hit, 0);
    miVector *a, *b, *c;
    ASSERT_TRUE(mi_tri_vectors(&stage.state, 'p', 0, &a, &b, &c));
    EXPECT_EQ(&b->x, stage.object->geometry->vertices.data() + 18);
    EXPECT_EQ(stage.hit.triangle, 1u) << "the primitive that was given is not changed";
    mi_state_set_pri(&stage.state, &stage.hit, 2);
    EXPECT_FALSE(mi_tri_vectors(&stage.state, 'p', 0, &a, &b, &c)) << "beyond the last triangle";
}

} // namespace
