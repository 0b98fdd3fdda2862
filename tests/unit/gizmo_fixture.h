// Gizmos in the scripted renderer's scene.
#pragma once

#include "gizmo.h"
#include "kit/matrix.h"
#include "shader_fixture.h"

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
