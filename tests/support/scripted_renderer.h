/*
 * The renderer as a test wants it: every renderer function, its answers
 * scripted, its calls recorded.
 *
 *     scripted::Renderer& renderer = scripted::Renderer::get();
 *     renderer.reset();
 *     miSetModuleHandle(renderer.handle());
 *     renderer.mi_trace_reflection = [](miColor* result, miState*, miVector*) {
 * ...; return miTRUE; }; renderer.answer(miQ_NUM_TEXTURES, 2);
 *     ... call the shader ...
 *     EXPECT_EQ(renderer.mi_trace_reflection.calls(), 1);
 *
 * Each function is a member that takes a callable of the function's own
 * signature (the five message functions take the finished text, mi_vquery
 * stands for mi_query). A function that a test does not script answers from the
 * small scene below: records by tag, names, shaders, lights, spaces, a
 * triangle. Scripts and scene are set while no other thread calls; calls and
 * logs are thread-safe. Every call with a state uses the state's `thread`
 * number to tell threads apart.
 */
#pragma once

#include "scripted_control.h"

#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace scripted {

/* One renderer function as a test sees it. */
template <class Signature> class Script;

template <class Result, class... Arguments> class Script<Result(Arguments...)> {
public:
    Script() = default;
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    /* Answers calls with `function` until the next reset. */
    template <class Function> Script& operator=(Function function) {
        scripted_ = std::move(function);
        install();
        return *this;
    }

    int calls() const { return hook_->calls.load(); }
    void reset_calls() { hook_->calls.store(0); }

    /* The answer without the test's script: for scripts that only watch. */
    Result unscripted(Arguments... arguments) {
        if (standard_)
            return standard_(arguments...);
        return hook_->fallback(arguments...);
    }

private:
    friend class Renderer;

    void attach(Hook<Result(Arguments...)>& hook) { hook_ = &hook; }
    void set_standard(std::function<Result(Arguments...)> standard) { standard_ = std::move(standard); }
    void remove_script() {
        scripted_ = nullptr;
        install();
    }
    void install() {
        hook_->context = this;
        hook_->call = scripted_ || standard_ ? &Script::run : nullptr;
    }
    static Result run(void* self, Arguments... arguments) {
        auto* script = static_cast<Script*>(self);
        return script->scripted_ ? script->scripted_(arguments...) : script->standard_(arguments...);
    }

    Hook<Result(Arguments...)>* hook_ = nullptr;
    std::function<Result(Arguments...)> scripted_;
    std::function<Result(Arguments...)> standard_;
};

struct Scripts {
#define RENDERER_FUNCTION(result, name, parameters, arguments) Script<result parameters> name;
#define RENDERER_MESSAGE(name) Script<void(const char*)> name;
#include "renderer_functions.inc"
};

enum class Level { debug, info, progress, warning, error };

struct Message {
    Level level;
    std::string text;
};

struct Trace {
    const char* function;
    miRay_type type; /* of the casting state */
    miVector dir;    /* null vector where the function takes none */
};

struct Call {
    const char* function;
    miShader_type type; /* what the shader is called as */
    miTag tag;          /* shader, material or texture that was called */
};

struct FramebufferWrite {
    int index;
    miColor value; /* as many leading bytes as the buffer's data type has */
};

struct StoredPhoton {
    bool volume;
    miColor energy;
    miVector point;
};

struct LightSample {
    miColor color;
    miVector dir;    /* from the point to the light */
    miScalar dot_nl; /* cosine to the normal */
};

enum class Space { world, camera, object, light };

/* Corner values of the triangle at the hit, object space; absent ones make
 * mi_tri_vectors miFALSE. */
struct Triangle {
    using Corners = std::array<miVector, 3>;
    std::optional<Corners> points, normals, motion;
    std::vector<Corners> textures; /* for each texture space */
    std::vector<Corners> bump_x, bump_y;
};

/* What a scripted shader is: called with the result, the state and its argument
   (the parameter block of its own function record, or the argument of
   mi_call_shader_x when that is not null). */
using ShaderScript = std::function<miBoolean(void* result, miState* state, void* arg)>;

class Renderer : public Scripts {
public:
    /* The one that the build made; loaded at the first use. */
    static Renderer& get();

    /* Another copy, from the file of a scripted renderer; ends the process when
     * it cannot be loaded. */
    explicit Renderer(const char* file);
    ~Renderer();

    /* For miSetModuleHandle. */
    void* handle() const { return handle_; }

    /* Everything as it was after loading: no scripts, an empty scene, empty logs,
       counts 0. Memory and locks that a shader holds are not touched and stay
       counted. */
    void reset();

    /* ---- what was asked
     * ------------------------------------------------------------------- */

    std::vector<Message> messages() const;
    int message_count(Level level) const;
    bool has_message(Level level, const std::string& text) const; /* word for word */
    std::vector<Trace> traces() const;
    std::vector<Call> calls() const;
    std::vector<FramebufferWrite> framebuffer_writes() const;
    std::vector<StoredPhoton> photons() const;
    std::vector<miColor> opacities() const;          /* given to mi_opacity_set */
    int calls_of(const std::string& function) const; /* by name; -1 for a name that is no renderer function */
    std::vector<std::string> functions() const;      /* all names */
    void log_calls(bool on) { control_->log_calls(on); }
    std::vector<std::string> call_log() const; /* names in order, since log_calls(true) */
    int pins() const;         /* accesses without their release: records, frame buffers, interface objects */
    int bad_accesses() const; /* accesses of tags that name nothing, for which a renderer would stop */
    void clear_logs();

    Resources resources() const { return control_->resources(); }
    void fail_allocations_after(long long count) { control_->fail_allocations_after(count); }

    /* ---- queries
     * --------------------------------------------------------------------------
     */

    /* Answers query `code` with `value`, for every tag or for one; a tag's own
     * answer goes first. */
    template <class T> void answer(miQ_type code, const T& value) {
        store_answer(code, miNULLTAG, &value, sizeof value);
    }
    template <class T> void answer(miQ_type code, miTag tag, const T& value) {
        store_answer(code, tag, &value, sizeof value);
    }
    /* miFALSE for that code. */
    void deny(miQ_type code) { store_answer(code, miNULLTAG, nullptr, 0); }
    void deny(miQ_type code, miTag tag) { store_answer(code, tag, nullptr, 0); }

    /* ---- scene
     * ----------------------------------------------------------------------------
     */

    /* Records by tag: what mi_db_access, mi_db_type, names and the queries answer
       from. The record is borrowed, not copied, and may be null. Tags count from
       1; the functions return the new one. */
    miTag add(miScene_type type, void* record, const char* name = nullptr);
    miTag add_string(const char* text);
    miTag add_tags(const std::vector<miTag>& tags);
    miTag add_group(const std::vector<miTag>& kids, miTag userdata = miNULLTAG);
    miTag add_userdata(const void* bytes, int size, miUint label = 0, miTag next = miNULLTAG,
                       miTag decl = miNULLTAG);
    miTag add_material(const miMaterial& material, const char* name = nullptr);
    miTag add_instance(const miInstance& instance, const char* name = nullptr);
    miTag add_light(const std::vector<LightSample>& samples,
                    const char* name = nullptr); /* also listed in `lights` */

    /* A shader that calls by tag, look-ups and material slots run. `function` is
       what state->shader names while it runs; null for a record of the renderer's
       own. */
    miTag add_shader(ShaderScript script, const char* name = nullptr, miFunction* function = nullptr);
    miTag add_color(const miColor& color); /* a shader that always gives that
                                              colour and miTRUE */

    /* A texture image: mi_lookup_color_texture asks the function for the
     * coordinate. */
    miTag add_texture(std::function<miBoolean(miColor* result, const miVector& coord)> lookup);

    /* The frame buffers of a camera: put the tag into camera.framebuffers. Index
     * = place in the list. */
    miTag add_framebuffers(const std::vector<std::pair<std::string, miImg_type>>& buffers);

    /* What mi_phen_eval gives for a connected parameter: `value` returns the
       address of the result. Call `connect` of the instance in state_builder.h
       rather than this. */
    int add_connection(std::function<void*(miState*)> value);

    void set_to_space(Space space, const miScalar* internal_to_space);

    std::vector<miTag> lights;          /* mi_global_lights_info, miQ_GLOBAL_LIGHTS */
    std::optional<miColor> trace_color; /* what every cast ray brings back; none:
                                           miFALSE, result untouched */
    std::optional<miColor> irradiance;  /* of the five irradiance functions; none: miFALSE */
    std::optional<std::pair<double, double>> ray_falloff; /* start and stop; none: miFALSE */
    Triangle triangle;                                    /* mi_tri_vectors */
    int texture_spaces = 0;                               /* miQ_NUM_TEXTURES */
    bool aborted = false;                                 /* mi_par_aborted */

private:
    struct Element;
    struct Answer {
        bool known;
        std::vector<unsigned char> bytes;
    };
    class BufferSet;
    class ShaderInterface;
    struct SpaceMatrices {
        miMatrix to, from;
    };

    void store_answer(miQ_type code, miTag tag, const void* bytes, std::size_t size);
    template <class Visitor> void for_each_script(Visitor visitor);
    void install_database();
    void install_calls();
    void install_traces();
    void install_light();
    void install_points();
    void install_vectors();
    void install_normals();
    void install_sample();
    void install_messages();

    Element& create(miScene_type type, void* record, const char* name);
    Element* find(miTag tag);
    void* access(miTag tag, int* type);
    template <class Record> Record* record(miTag tag, miScene_type type);
    miFunction* function_of(miState* state, miTag tag);
    miTag material_slot(miTag tag, miShader_type type);

    bool query(miQ_type code, miState* state, miTag tag, void* result, va_list arguments);
    bool query_function(miQ_type code, miState* state, miTag tag, void* result);
    bool query_thread_pointer(miQ_type code, miState* state, miTag tag, void* result, va_list arguments);
    bool query_declaration(miQ_type code, miState* state, miTag tag, void* result);
    bool query_instance(miQ_type code, miTag tag, void* result);
    bool query_group(miQ_type code, miTag tag, void* result, va_list arguments);
    bool query_light(miQ_type code, miTag tag, void* result);
    bool query_material(miQ_type code, miTag tag, void* result);
    bool query_data(miQ_type code, miState* state, miTag tag, void* result);
    bool query_scene(miQ_type code, miTag tag, void* result);

    miBoolean run_shader(const char* function, void* result, miShader_type type, miState* state, miTag tag,
                         void* arg);
    miBoolean look_up(miColor* result, miState* state, miTag tag, const miVector& coord);
    miBoolean sample_light(miColor* result, miVector* dir, miScalar* dot_nl, miTag light, miInteger* samples);
    miBoolean trace(const char* function, miColor* result, miState* state, const miVector* dir);
    bool tri_vectors(int which, int ntex, miVector** a, miVector** b, miVector** c);
    void put_framebuffer(int index, const void* value);
    miVector to_raster(const miState* state, const miVector& point) const;

    void* handle_ = nullptr;
    Control* control_ = nullptr;
    std::vector<std::unique_ptr<Element>> elements_;  /* tag 1 first */
    std::map<std::pair<int, miTag>, Answer> answers_; /* null tag: for every tag */
    std::vector<std::function<void*(miState*)>> connections_;
    std::map<miTag, std::vector<LightSample>> light_samples_;
    std::array<SpaceMatrices, 4> spaces_;
    std::unique_ptr<BufferSet> buffers_;
    std::unique_ptr<ShaderInterface> interface_;

    mutable std::mutex mutex_; /* of everything below */
    std::map<const miFunction*, std::vector<void*>> thread_pointers_;
    std::vector<Message> messages_;
    std::vector<Trace> traces_;
    std::vector<Call> calls_;
    std::vector<FramebufferWrite> framebuffer_writes_;
    std::vector<StoredPhoton> photons_;
    std::vector<miColor> opacities_;
    int pins_ = 0;
    int bad_accesses_ = 0;
};

} // namespace scripted
