// The renderer as a test wants it: every renderer function, its answers scripted, its calls recorded.
//
//     scripted::Renderer& renderer = scripted::Renderer::get();
//     renderer.reset();
//     miSetModuleHandle(renderer.handle());
//     renderer.mi_trace_reflection = [](miColor* result, miState*, miVector* dir) { ...; return miTRUE; };
//     renderer.answer(miQ_NUM_TEXTURES, 2);
//     ... call the shader ...
//     EXPECT_EQ(renderer.mi_trace_reflection.calls(), 1);
//
// Each function is a member that takes a callable of the function's own signature (the five message functions
// take the finished text, mi_vquery stands for mi_query). One that a test does not script answers from the
// small scene below where it can, otherwise 0, writing nothing. Scripts and scene are set while no other
// thread calls; calls and logs are thread-safe, where a state's `thread` number tells threads apart.
#pragma once

#include "kit/memory.h"
#include "kit/shader_state.h"
#include "scripted_hooks.h"

#include <array>
#include <atomic>
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

// One renderer function as a test sees it.
template <class Signature> class Script;
template <class Result, class... Arguments> class Script<Result(Arguments...)> {
public:
    using Function = std::function<Result(Arguments...)>;

    Script() = default;
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    // Answers calls with `function` until the next reset.
    Script& operator=(Function function) {
        scripted_ = std::move(function);
        return *this;
    }

    int calls() const { return calls_; }
    void reset_calls() { calls_ = 0; }

    // The answer without the test's script: for scripts that only watch.
    Result unscripted(Arguments... arguments) { return standard_ ? standard_(arguments...) : Result(); }

private:
    friend class Renderer;

    static Result run(void* self, Arguments... arguments) {
        auto* script = static_cast<Script*>(self);
        ++script->calls_;
        return script->scripted_ ? script->scripted_(arguments...) : script->unscripted(arguments...);
    }

    const char* name_ = nullptr;
    std::atomic<int> calls_{0};
    Function scripted_, standard_;
};

struct Scripts {
#define SCRIPT(result, name, parameters, arguments) Script<result parameters> name;
#define MESSAGE_SCRIPT(name) Script<void(const char*)> name;
    ORL_RENDERER_FUNCTIONS(SCRIPT, MESSAGE_SCRIPT)
#undef SCRIPT
#undef MESSAGE_SCRIPT
};

// What happened, in order: `renderer.traces()` is a copy of all entries since the last clear_logs().
template <class Entry> class Log {
public:
    std::vector<Entry> operator()() const {
        const std::lock_guard guard(mutex_);
        return entries_;
    }
    void add(Entry entry) {
        const std::lock_guard guard(mutex_);
        entries_.push_back(std::move(entry));
    }
    void clear() {
        const std::lock_guard guard(mutex_);
        entries_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

enum class Level { debug, info, progress, warning, error };

struct Message {
    Level level;
    std::string text;
    bool operator==(const Message&) const = default;
};
struct Call {
    const char* function;
    miTag tag; // shader, material or texture that was called
};
struct FramebufferWrite {
    int index;
    miColor value; // as many leading bytes as the buffer's data type has
};
struct Photon { // of any function that casts or stores one
    const char* function;
    miColor energy;
    miVector point, dir; // of the state
};
struct LightSample {
    miColor color;
    miVector dir;    // from the point to the light
    miScalar dot_nl; // cosine to the normal
};
struct Resources : stage::MemoryCounts {
    long long live_locks;
};

enum class Space { world, camera, object, light };

// Corner values of the triangle at the hit, object space; absent ones make mi_tri_vectors miFALSE.
struct Triangle {
    using Corners = std::array<miVector, 3>;
    std::optional<Corners> points, normals;
    std::vector<Corners> textures; // for each texture space
    std::vector<Corners> bump_x, bump_y;
    std::vector<int> slots; // miQ_PRI_DATA: where the word of each slot stands in `words`
    std::vector<miUint> words;
};

// What a scripted shader is: called with the result, the state and its argument (the parameter block of its
// own function record, or the argument of mi_call_shader_x when that is not null).
using ShaderScript = std::function<miBoolean(void* result, miState* state, void* arg)>;

class Renderer : public Scripts {
public:
    // The one that the build made; loaded at the first use.
    static Renderer& get();

    // Another copy, from the file of a scripted renderer, which stays loaded; ends the process when it cannot
    // be loaded.
    explicit Renderer(const char* file);
    ~Renderer();

    // For miSetModuleHandle.
    void* handle() const { return handle_; }

    // Everything as it was after loading: no scripts, an empty scene, empty logs, counts 0. Memory and locks
    // that a shader holds are not touched and stay counted.
    void reset();

    // ---- what was asked

    Log<Message> messages;
    Log<Call> calls;
    Log<FramebufferWrite> framebuffer_writes;
    Log<Photon> photons;
    Log<miColor> opacities;            // given to mi_opacity_set
    int pins() const { return pins_; } // accesses without their release: records, buffers, interface objects
    int bad_accesses() const { return bad_accesses_; } // of tags that name nothing: a renderer would stop
    void clear_logs();
    static Resources resources();
    // What miQ_FUNC_TLS_SET left for an instance, a pointer for each thread.
    const std::vector<void*>& thread_data(const miFunction& instance) { return thread_pointers_[&instance]; }

    // ---- queries

    // Answers query `code` with `value`, for every tag or for one; a tag's own answer goes first.
    template <class T> void answer(miQ_type code, const T& value) { answer(code, miNULLTAG, value); }
    template <class T> void answer(miQ_type code, miTag tag, const T& value) {
        answers_[{code, tag}].assign(reinterpret_cast<const char*>(&value), sizeof value);
    }
    // miFALSE for that code.
    void deny(miQ_type code, miTag tag = miNULLTAG) { answers_[{code, tag}].clear(); }

    // ---- scene

    // Records by tag: what mi_db_access, mi_db_type, names and the queries answer from. The record is
    // borrowed, not copied, and may be null. Tags count from 1; the functions return the new one.
    miTag add(miScene_type type, void* record, const char* name = nullptr);
    // A copy of a record: miInstance, miMaterial, miLight, miObject, ...
    template <class Record>
    miTag add_copy(miScene_type type, const Record& record, const char* name = nullptr) {
        return add(type, std::memcpy(allocate(sizeof record), &record, sizeof record), name);
    }
    miTag add_material(const miMaterial& material) { return add_copy(miSCENE_MATERIAL, material); }
    miTag add_instance(const miInstance& instance) { return add_copy(miSCENE_INSTANCE, instance); }
    miTag add_string(const char* text);
    miTag add_group(const std::vector<miTag>& kids);
    miTag add_userdata(const void* bytes, int size);
    // An instance of `light`, also listed in `lights`. mi_sample_light gives its samples one by one.
    miTag add_light(const std::vector<LightSample>& samples, const miLight& light = {});

    // A shader that calls by tag, look-ups and material slots run. `function` is what state->shader names
    // while it runs; null for a record of the renderer's own.
    miTag add_shader(ShaderScript script, const char* name = nullptr, miFunction* function = nullptr);
    miTag add_color(const miColor& color); // a shader that always gives that colour and miTRUE

    // A texture image: mi_lookup_color_texture asks the function for the coordinate.
    miTag add_texture(std::function<miBoolean(miColor* result, const miVector& coord)> lookup);

    // The frame buffers of a camera: put the tag into camera.framebuffers. Index = place in the list.
    miTag add_framebuffers(const std::vector<std::pair<std::string, miImg_type>>& buffers);

    // What mi_phen_eval gives for a connected parameter: `value` returns the address of the result. Call
    // `connect` of the instance in state_builder.h rather than this.
    int add_connection(std::function<void*(miState*)> value);

    void set_to_space(Space space, const miScalar* internal_to_space);

    std::vector<miTag> lights;           // mi_global_lights_info, miQ_GLOBAL_LIGHTS
    std::optional<miColor> trace_color;  // what every cast ray brings back; none: miFALSE, result untouched
    Triangle triangle;                   // mi_tri_vectors
    int texture_spaces = 0;              // miQ_NUM_TEXTURES
    miImg_image* output_image = nullptr; // the main image, for output shaders
    bool aborted = false;                // mi_par_aborted

private:
    struct Element {
        miScene_type type;
        void* record;
        std::string name;
        ShaderScript script;
        std::function<miBoolean(miColor*, const miVector&)> lookup;
        std::vector<LightSample> samples;
    };
    struct Field;
    class BufferSet;
    class ShaderInterface;
    static const Field fields[];

    template <class Visitor> void for_each_script(Visitor visitor);
    template <class Function, class... Signatures>
    static void standard(Function function, Script<Signatures>&... scripts) {
        ((scripts.standard_ = function), ...);
    }
    void answer_database_and_queries();
    void answer_calls();
    void answer_light();
    void answer_spaces();
    void answer_sample();
    void answer_from_the_kit();

    void* allocate(std::size_t size); // zeroed, until the next reset
    Element* find(miTag tag);
    template <class Record> Record* record(miTag tag, miScene_type type);
    void* access(miTag tag, int* type);
    void* record_of(miScene_type type, miState* state, miTag tag);
    bool query(miQ_type code, miState* state, miTag tag, void* result, va_list arguments);
    bool query_special(miQ_type code, miState* state, miTag tag, void* result, va_list arguments);
    bool query_scene(miQ_type code, void* result);
    miBoolean run_shader(const char* function, void* result, miShader_type type, miState* state, miTag tag,
                         void* arg);
    Triangle::Corners* corners(int which, int space);

    void* handle_ = nullptr;
    std::vector<std::unique_ptr<double[]>> memory_;
    std::vector<std::unique_ptr<Element>> elements_;       // tag 1 first
    std::map<std::pair<int, miTag>, std::string> answers_; // null tag: for every tag; empty: denied
    std::vector<std::function<void*(miState*)>> connections_;
    miMatrix to_space_[4], from_space_[4];
    std::unique_ptr<BufferSet> buffers_;
    std::unique_ptr<ShaderInterface> interface_;
    std::array<stage::ShaderStateRecords, 256> shader_state_; // for each thread
    std::map<const miFunction*, std::vector<void*>> thread_pointers_;
    std::mutex mutex_; // of the thread pointers
    std::atomic<int> pins_{0}, bad_accesses_{0};
};

} // namespace scripted
