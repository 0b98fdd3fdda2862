// Runs shaders: their first call, phenomena, lists, connected parameters.
#include "render/shading.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "kit/color.h"
#include "kit/lock.h"
#include "kit/message.h"
#include "render/renderer.h"

namespace stage {

namespace {

// What this thread runs, for messages. Reached without a call, since every call of a shader sets it.
[[gnu::tls_model("initial-exec")]] thread_local const miFunction* running = nullptr;

// What a call changes in the state, put back when it ends. The memory that it took is given back, and with it
// the rays that it cast: the state's child is again the one that the calling shader knows. A lens shader's
// memory stays until the sample's end, for its ray's hit is handed on.
class CallScope {
public:
    CallScope(miState* state, miShader_type type, miFunction* function)
        : state_(state), arena_(context_of(state).arena), mark_(arena_.mark()), shader_(state->shader),
          child_(state->child), user_(state->user), user_size_(state->user_size), type_(state->call_type),
          running_(std::exchange(running, function)), keep_rays_(type == miSHADER_LENS) {
        state->shader = function;
        state->call_type = type;
    }
    ~CallScope() {
        running = running_;
        state_->shader = shader_;
        state_->user = user_;
        state_->user_size = user_size_;
        state_->call_type = type_;
        if (keep_rays_)
            return;
        state_->child = child_;
        arena_.release(mark_);
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

private:
    miState* state_;
    Arena& arena_;
    Arena::Mark mark_;
    miFunction* shader_;
    miState* child_;
    void* user_;
    int user_size_;
    miShader_type type_;
    const miFunction* running_;
    bool keep_rays_;
};

// Bounds shaders that call each other without end by the stack that they take: threads have at least twice as
// much. Once the bound is met, everything ends up to the outermost call, since shaders that call several
// others would take that way again and again.
class DepthScope {
public:
    explicit DepthScope(ThreadContext& context) : context_(context) {
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        outermost_ = context.outermost_call == 0;
        if (outermost_) {
            context.outermost_call = here;
            context.calls_given_up = false;
        }
        const std::uintptr_t top = context.outermost_call;
        met_ = !context.calls_given_up && (here < top ? top - here : here - top) > stack_limit;
        context.calls_given_up = context.calls_given_up || met_;
    }
    ~DepthScope() {
        if (outermost_)
            context_.outermost_call = 0;
    }
    DepthScope(const DepthScope&) = delete;
    DepthScope& operator=(const DepthScope&) = delete;

    [[nodiscard]] bool may_call() const { return !context_.calls_given_up; }
    [[nodiscard]] bool met_bound() const { return met_; }

private:
    static constexpr std::uintptr_t stack_limit = std::uintptr_t{2} << 20;
    ThreadContext& context_;
    bool outermost_, met_;
};

// Once for each shader; a material or phenomenon is told by the shader that calls it. Rare things stay out of
// line here: a call keeps its values in registers.
[[gnu::noinline]] void report_depth(const miState* state, const Element* element) {
    if (!element->shader || !element->shader->code)
        element = state->shader ? element_of(state->shader) : nullptr;
    if (element && is_first(element->shader->code->reported_depth))
        send_message(MessageLevel::error,
                     "shaders call each other without end; given up at shader \"%s\" (%s)",
                     element->name.c_str(), element->place.text().c_str());
}

// Locks stay from the first call on, for all frames.
miLock make_lock(std::shared_ptr<miLock_record>& owner) {
    if (!owner)
        owner.reset(create_lock(), destroy_lock);
    return owner.get();
}

void initialise_code(ShaderCode& code, miState* state) {
    if (code.initialised.load(std::memory_order_relaxed))
        return;
    code.lock = make_lock(code.owned_lock);
    miBoolean wants_instances = miFALSE;
    if (code.init)
        code.init(state, nullptr, &wants_instances);
    code.wants_instance_init = wants_instances != miFALSE;
    code.initialised.store(true, std::memory_order_release);
}

// The first call of an instance. One lock for the whole scene: first calls are rare, and a lock for each
// instance could close a circle, for an init may bring about the first calls of others.
[[gnu::noinline]] void initialise(Scene& scene, Element& element, miState* state, miShader_type type) {
    const std::lock_guard guard(scene.init_guard);
    ShaderInstance& instance = *element.shader;
    if (instance.initialised.load(std::memory_order_relaxed) || instance.initialising)
        return;
    instance.initialising = true;
    auto* function = element.as<miFunction>();
    const Element& holder = parameter_holder(scene.database, element);
    function->reserved[0] = &element;
    function->lock = make_lock(instance.lock);
    function->connection_offset = holder.as<miFunction>()->connection_offset;
    const Renderer* renderer = context_of(state).renderer;
    const std::size_t threads = renderer ? renderer->contexts().size() : 0;
    instance.thread_user.assign(std::max(threads, static_cast<std::size_t>(state->thread) + 1), nullptr);

    const FamilyScope time(context_of(state).statistics, Family::inits);
    const CallScope scope(state, type, function);
    initialise_code(*instance.code, state);
    if (instance.code->wants_instance_init) {
        miBoolean ignored = miFALSE;
        instance.code->init(state, parameter_holder(scene.database, element).as<miFunction>()->parameters,
                            &ignored);
    }
    scene.init_order.push_back(element.tag);
    instance.initialising = false;
    instance.initialised.store(true, std::memory_order_release);
}

// Runs the code of one instance.
miBoolean run(void* result, miShader_type type, miState* state, Element& element, void* arg) {
    ThreadContext& context = context_of(state);
    ShaderInstance& instance = *element.shader;
    if (!instance.initialised.load(std::memory_order_acquire))
        initialise(context.world->scene, element, state, type);
    auto* function = element.as<miFunction>();
    auto* holder = function;
    if (function->parameter_indirect)
        holder = parameter_holder(context.world->scene.database, element).as<miFunction>();
    const FamilyScope time(context.statistics, family_of(type));
    const CallScope scope(state, type, function);
    const miBoolean answer = instance.code->entry(result, state, holder->parameters, arg);
    if (answer && result && !context.bad_shader && instance.declaration &&
        instance.declaration->result.type == miTYPE_COLOR && !is_finite(*static_cast<const miColor*>(result)))
        context.bad_shader = &element;
    return answer;
}

// The root of a phenomenon for a type of call.
miTag root_of(const ShaderInstance& phenomenon, miShader_type type) {
    miTag root = miNULLTAG;
    switch (type) {
    case miSHADER_LENS:
        root = phenomenon.lens;
        break;
    case miSHADER_OUTPUT:
        root = phenomenon.output;
        break;
    case miSHADER_VOLUME:
        root = phenomenon.volume;
        break;
    case miSHADER_ENVIRONMENT:
        root = phenomenon.environment;
        break;
    default:
        break;
    }
    return root ? root : phenomenon.root;
}

// Runs one member of a list. `element` may be null.
miBoolean call_one(void* result, miShader_type type, miState* state, Element* element, void* arg) {
    if (!element)
        return miFALSE;
    const DepthScope depth(context_of(state));
    if (depth.met_bound())
        report_depth(state, element);
    if (!depth.may_call())
        return miFALSE;
    if (element->type == miSCENE_MATERIAL)
        return call_shader(result, type, state, slot_of(*element->as<miMaterial>(), type), arg);
    if (element->type != miSCENE_FUNCTION || !element->shader)
        return miFALSE;
    if (element->shader->code)
        return run(result, type, state, *element, arg);
    return call_shader(result, type, state, root_of(*element->shader, type), arg);
}

} // namespace

const Element* running_shader() {
    return running ? element_of(running) : nullptr;
}

// A list is lit when one of its shaders is; a shadow list ends with the first that blocks the light.
miBoolean call_shader(void* result, miShader_type type, miState* state, miTag tag, void* arg) {
    const Database& database = context_of(state).world->scene.database;
    miBoolean answer = miFALSE;
    while (tag != miNULLTAG) {
        Element* element = database.find(tag);
        const miBoolean one = call_one(result, type, state, element, arg);
        if (type == miSHADER_SHADOW && !one)
            return miFALSE;
        answer = answer || one;
        if (!element || element->type != miSCENE_FUNCTION || type == miSHADER_LENS)
            break;
        tag = element->as<miFunction>()->next_function;
    }
    return answer;
}

// All of them before a call, and in the reverse order after it, so that each takes back what it set up.
[[gnu::noinline]] void call_state_shaders(miColor* result, miState* state, miState_call call,
                                          miShader_type shader) {
    miState_event event{call, shader};
    const std::span<const miTag> shaders = context_of(state).world->state_shaders;
    const bool forwards = call == miSTATE_CALL_INIT || call == miSTATE_CALL_SAMPLE_INIT;
    const Database& database = context_of(state).world->scene.database;
    for (std::size_t i = 0; i < shaders.size(); ++i)
        call_one(result, miSHADER_STATE, state, database.find(shaders[forwards ? i : shaders.size() - 1 - i]),
                 &event);
}

miBoolean call_ray_shader(miColor* result, miShader_type type, miState* state, miTag tag) {
    if (context_of(state).world->state_shaders.empty() || tag == miNULLTAG) [[likely]]
        return call_shader(result, type, state, tag, nullptr);
    call_state_shaders(result, state, miSTATE_CALL_SAMPLE_INIT, type);
    const miBoolean lit = call_shader(result, type, state, tag, nullptr);
    call_state_shaders(result, state, miSTATE_CALL_SAMPLE_EXIT, type);
    return lit;
}

// Of a shader or a phenomenon.
miTag MaterialSlots::own_slot(miShader_type type) const {
    if (element_->type != miSCENE_FUNCTION || !element_->shader)
        return miNULLTAG;
    const ShaderInstance& instance = *element_->shader;
    if (!instance.code && ((type == miSHADER_VOLUME && instance.volume) ||
                           (type == miSHADER_ENVIRONMENT && instance.environment)))
        return tag_;
    const bool applies = instance.declaration && ((instance.declaration->apply >> type) & 1u);
    return type == miSHADER_MATERIAL || applies ? tag_ : miNULLTAG;
}

// ---- connected parameters ----

namespace {

void* value_of(miState* state, const Connection& connection) {
    ThreadContext& context = context_of(state);
    const Database& database = context.world->scene.database;
    Element* source = database.find(connection.shader);
    const std::uint32_t result_size = source && source->shader ? source->shader->result_size : 0u;
    const std::size_t size = std::max(
        {std::size_t{result_size}, std::size_t{connection.source_offset} + connection.size, sizeof(miColor)});
    auto* result = static_cast<std::byte*>(context.arena.allocate(size));
    std::memset(result, 0, size);
    call_one(result, miSHADER_TEXTURE, state, source, nullptr);
    return result + connection.source_offset;
}

} // namespace

void* evaluate_parameter(miState* state, void* param) {
    const int entry = mi_connection_entry(state->shader, param);
    Element& element = parameter_holder(context_of(state).world->scene.database, *element_of(state->shader));
    const std::vector<Connection>& connections = element.shader->connections;
    if (entry <= 0 || static_cast<std::size_t>(entry) > connections.size())
        return param;
    return value_of(state, connections[static_cast<std::size_t>(entry) - 1]);
}

} // namespace stage
