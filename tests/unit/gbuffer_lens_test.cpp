// The lens that writes the host's frame buffers.
#include "shader_fixture.h"
#include "system.h"
#include "utilshaders.h"

#ifdef _WIN32
#include <windows.h>
#endif

using namespace orl;

ENTRY_POINT(orl_base_GBuffer_lens, miColor, GBufferLensParams);
INIT_AND_EXIT(orl_base_GBuffer_lens, GBufferLensParams);

namespace {

enum Buffer { u, node_id, velocity, node_render_id, v };

class GBufferLens : public ShaderTest {
protected:
    LiveShader<GBufferLensParams> lens{state, orl_base_GBuffer_lens_init, orl_base_GBuffer_lens_exit};
    miTag hit = miNULLTAG;
    miColor result{};

    GBufferLens() {
        state.camera.framebuffers = renderer.add_framebuffers({{"fb_ucoord", miIMG_TYPE_S_FP},
                                                               {"fb_node_id", miIMG_TYPE_TAG},
                                                               {"fb_velocity", miIMG_TYPE_M},
                                                               {"fb_node_render_id", miIMG_TYPE_TAG},
                                                               {"fb_vcoord", miIMG_TYPE_S_FP}});
        renderer.trace_color = miColor{0.5f, 0.25f, 0, 1};
        renderer.mi_trace_eye = [this](miColor* color, miState* s, miVector* org, miVector* dir) {
            s->instance = hit;
            s->pri = hit ? s : nullptr;
            for (const auto& [given, own] : {std::pair{*org, state->org}, {*dir, state->dir}}) {
                EXPECT_EQ(given.x, own.x);
                EXPECT_EQ(given.y, own.y);
                EXPECT_EQ(given.z, own.z);
            }
            return renderer.mi_trace_eye.unscripted(color, s, org, dir);
        };
        renderer.texture_spaces = 1;
        state.textures = {{0.125f, 0.75f, 0}};
        state.use_textures();
        orl_NodeData node{};
        node.node_id = 1234567;
        node.node_render_id = 42;
        hit = add_instance_with(add_record(node));
    }

    void all_on() {
        lens->node_id = lens->node_render_id = lens->texture_coordinates = lens->velocity = miTRUE;
        lens.start();
    }
    miBoolean shade() { return orl_base_GBuffer_lens(&result, state, &lens.params()); }

    const scripted::FramebufferWrite* written(int buffer) {
        writes = renderer.framebuffer_writes();
        for (const auto& write : writes)
            if (write.index == buffer)
                return &write;
        return nullptr;
    }
    std::vector<scripted::FramebufferWrite> writes;
};

TEST_F(GBufferLens, VelocityIsTheMotionInPixels) {
    all_on();
    // A camera at (0, 0, 5) that looks along -z. Raster space: x and y over depth, times 100.
    constexpr miMatrix to_camera{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, -5, 1};
    renderer.set_to_space(scripted::Space::camera, to_camera);
    renderer.mi_point_to_raster = [](miState*, miVector* r, miVector* p) {
        const float depth = 5 - p->z;
        *r = {100 * p->x / depth, 100 * p->y / depth, 0};
    };
    state->point = {1, 2, 1};
    state->motion = {0, 1, 2}; // from depth 4 to depth 2: (25, 50) to (50, 150)
    shade();
    EXPECT_FLOAT_EQ(written(velocity)->value.r, 25);
    EXPECT_FLOAT_EQ(written(velocity)->value.g, 100);

    for (const float z : {4.0f, 6.0f}) { // into the camera's plane and behind it
        renderer.clear_logs();
        state->motion = {0, 0, z};
        shade();
        EXPECT_EQ(written(velocity)->value.r, 0.0f);
        EXPECT_EQ(written(velocity)->value.g, 0.0f);
    }
}

TEST_F(GBufferLens, NotANumberIsReplaced) {
    all_on();
    renderer.trace_color = miColor{1, not_a_number, 0, 1};
    EXPECT_TRUE(shade());
    EXPECT_EQ(result, (miColor{0, 0, 0, 1}));
    EXPECT_EQ(errors().size(), 1u);
}

#ifdef _WIN32

// A wait on a null handle would fail and leave an error.
TEST_F(GBufferLens, NullHandleNeverWaits) {
    all_on();
    SetLastError(ERROR_SUCCESS);
    shade();
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(renderer.mi_par_aborted.calls(), 0);
}

class HeldLens : public GBufferLens {
protected:
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HeldLens() {
        const auto bits = reinterpret_cast<std::uint64_t>(event);
        lens->hold_handle_low = static_cast<miInteger>(bits & 0xffffffffu);
        lens->hold_handle_high = static_cast<miInteger>(bits >> 32);
        lens.start();
    }
    ~HeldLens() { CloseHandle(event); }
};

TEST_F(HeldLens, WaitsUntilTheHostLetsGo) {
    int asked = 0;
    renderer.mi_par_aborted = [&] {
        if (++asked == 3)
            SetEvent(event);
        return miFALSE;
    };
    const ULONGLONG start = GetTickCount64();
    EXPECT_TRUE(shade());
    EXPECT_EQ(asked, 3);
    EXPECT_GE(GetTickCount64() - start, 250u); // three waits of 100 ms, less the clock's grain
    EXPECT_TRUE(shade());
    EXPECT_EQ(asked, 3);
}

TEST_F(HeldLens, StopsWaitingWhenRenderingIsAborted) {
    renderer.aborted = true;
    EXPECT_TRUE(shade());
    EXPECT_EQ(renderer.mi_par_aborted.calls(), 1);
}

#else

TEST_F(GBufferLens, HandlesMeanNothingHere) {
    EXPECT_FALSE(system::host_handles);
    lens->hold_handle_low = 5;
    lens->hold_handle_high = 5;
    all_on();
    EXPECT_TRUE(shade());
    EXPECT_EQ(renderer.mi_par_aborted.calls(), 0);
}

#endif

} // namespace
