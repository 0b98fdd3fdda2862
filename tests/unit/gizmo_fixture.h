// Gizmos in the scripted renderer's scene.
#pragma once

#include "gizmo.h"
#include "kit/matrix.h"
#include "shader_fixture.h"

#include <chrono>
#include <cmath>
#include <functional>
#include <initializer_list>

struct GizmoTest : ShaderTest {
    static constexpr miMatrix identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    static constexpr miMatrix up{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 2, 1}; // by 2

    // The node of a gizmo; `matrix` takes its space to the world.
    template <class Record> miTag add_node(const Record& record, const miMatrix& matrix = identity) {
        miInstance instance{};
        stage::matrix_copy(instance.tf.local_to_global, matrix);
        if (!stage::matrix_invert(instance.tf.global_to_local, matrix))
            stage::matrix_null(instance.tf.global_to_local);
        instance.userdata = add_record(record);
        return renderer.add_instance(instance);
    }

    // kind, radius, height, sizes, seed
    static constexpr orl_GizmoData ball{orl_gizmo_sphere, 1, 0, 0, 0, 0, 1};
    static constexpr orl_GizmoData sphere{orl_gizmo_sphere, 1.5f, 0, 0, 0, 0, 1};
    static constexpr orl_GizmoData cylinder{orl_gizmo_cylinder, 0.8f, 2.4f, 0, 0, 0, 2};
    static constexpr orl_GizmoData box{orl_gizmo_box, 0, 0, 1.2f, 2.6f, 1.8f, 3};
    static constexpr orl_GizmoData hemisphere{orl_gizmo_hemisphere, 1.3f, 0, 0, 0, 0, 4};
};

// A shader that fills gizmos.
template <class Params> struct GizmoShader : LiveShader<Params> {
    using LiveShader<Params>::LiveShader;

    void fill(const std::vector<miTag>& nodes) {
        orl::decl::Array<miTag>& array = this->params().gizmos;
        this->set_array(array.first, array.count, array.elements, nodes);
    }
};

// Numbers that make no sense in each of the fields; `shade(change)` is the colour of a shader so changed.
template <class Params> using Change = std::function<void(Params&)>;
template <class Params, class Shade>
void survives(std::vector<Change<Params>> changes, std::initializer_list<miScalar Params::*> fields,
              Shade shade) {
    for (miScalar Params::*field : fields)
        for (const float bad : {0.0f, -1.0f, not_a_number, infinite, -infinite, 3e38f, -3e38f})
            changes.push_back([=](Params& params) { params.*field = bad; });
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t k = 0; k < changes.size(); ++k) {
        const miColor color = shade(changes[k]);
        EXPECT_TRUE(std::isfinite(color.r) && std::isfinite(color.a)) << k;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

// In the mean of 32 rays each halving of the step nearly halves the change of `march(ray, steps)`, if not
// more, and the fourth comes to less than 1/1000 of the whole.
template <class March> void converges(int first_steps, March march) {
    float changes[4] = {}, total = 0.0f;
    for (int ray = 0; ray < 32; ++ray) {
        float before = march(ray, first_steps);
        for (int k = 0; k < 4; ++k) {
            const float now = march(ray, first_steps << (k + 1));
            changes[k] += std::fabs(now - before);
            before = now;
        }
        total += before;
    }
    for (int k = 0; k < 3; ++k)
        EXPECT_LT(changes[k + 1], 0.55f * changes[k]) << k;
    EXPECT_LT(changes[3], 0.001f * total);
    EXPECT_GT(total, 1.0f);
}
