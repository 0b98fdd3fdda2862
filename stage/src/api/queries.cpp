// Queries: one row for each code, which names the small function that answers it.
#include <array>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <string>
#include <type_traits>
#include <unordered_set>

#include "api/api.h"
#include "api/spaces.h"
#include "image/texture.h"
#include "kit/message.h"
#include "render/gather.h"
#include "render/shading.h"

namespace stage {

namespace {

// A query that is being answered.
struct Query {
    miState* state;
    miTag tag;
    void* result;
    std::decay_t<std::va_list> arguments; // the caller's own: copies would show in the times of samples

    template <class Value> miBoolean give(Value value) {
        if constexpr (std::is_enum_v<Value>)
            return give(static_cast<int>(value));
        else {
            if (!result)
                return miFALSE;
            std::memcpy(result, &value, sizeof value);
            return miTRUE;
        }
    }

    // The element that the tag names; null when it names none or one of another type.
    [[nodiscard]] Element* element(int type) const {
        const Scene* scene = scene_of(state);
        Element* found = scene && tag != miNULLTAG ? scene->database.find(tag) : nullptr;
        return found && found->type == type ? found : nullptr;
    }
    template <class Record> [[nodiscard]] const Record* record(int type) const {
        const Element* found = element(type);
        return found ? found->as<Record>() : nullptr;
    }
};

template <class Record, class Value> Record record_of(Value Record::*);

// A member of the record that the tag names, handed out as it stands.
template <int type, auto member> miBoolean field(Query& query) {
    const auto* record = query.record<decltype(record_of(member))>(type);
    return record ? query.give(record->*member) : miFALSE;
}

// ---- instances and groups ----

template <auto matrix> miBoolean instance_matrix(Query& query) {
    const auto* instance = query.record<miInstance>(miSCENE_INSTANCE);
    return instance ? query.give(static_cast<const miScalar*>(instance->tf.*matrix)) : miFALSE;
}

miBoolean instance_name(Query& query) {
    const Element* instance = query.element(miSCENE_INSTANCE);
    return instance ? query.give(instance->name.empty() ? nullptr : instance->name.c_str()) : miFALSE;
}

miBoolean group_kid(Query& query) {
    const auto* group = query.record<miGroup>(miSCENE_GROUP);
    const int k = va_arg(query.arguments, int);
    if (!group || k < 0 || k >= group->no_kids)
        return miFALSE;
    // The list runs past the record's own one-element member.
    miTag kid;
    std::memcpy(&kid,
                reinterpret_cast<const char*>(group) + offsetof(miGroup, kids) +
                    static_cast<std::size_t>(k) * sizeof(miTag),
                sizeof kid);
    return query.give(kid);
}

// ---- objects ----

miBoolean object_data(Query& query) {
    const miObject* object = nullptr;
    if (query.tag != miNULLTAG) {
        object = query.record<miObject>(miSCENE_OBJECT);
    } else if (const WorldInstance* instance = current_instance(query.state)) {
        object = instance->object;
    }
    return object ? query.give(object->userdata) : miFALSE;
}

// ---- lights ----

// A member of a light, which is named by its own tag or by that of an instance of it.
template <auto member> miBoolean light(Query& query) {
    Query item = {query.state, query.tag, nullptr, {}};
    if (const auto* instance = query.record<miInstance>(miSCENE_INSTANCE))
        item.tag = instance->item;
    const auto* record = item.record<miLight>(miSCENE_LIGHT);
    return record ? query.give(record->*member) : miFALSE;
}

// Told once for each light: most shaders multiply by it.
miBoolean light_energy(Query& query) {
    Query item = {query.state, query.tag, nullptr, {}};
    if (const auto* instance = query.record<miInstance>(miSCENE_INSTANCE))
        item.tag = instance->item;
    Element* const element = item.element(miSCENE_LIGHT);
    if (element != nullptr && element->lacks_energy.exchange(false))
        send_message(MessageLevel::warning,
                     "%s: light \"%s\" states no energy, which its shader asks for: black",
                     element->place.text().c_str(), element->name.c_str());
    return light<&miLight::energy>(query);
}

// ---- shader instances ----

// The function that the tag names, or the running shader.
Element* function_of(const Query& query) {
    if (query.tag != miNULLTAG)
        return query.element(miSCENE_FUNCTION);
    return query.state && query.state->shader ? element_of(query.state->shader) : nullptr;
}

template <auto member> miBoolean function_field(Query& query) {
    Element* function = function_of(query);
    return function ? query.give(function->as<miFunction>()->*member) : miFALSE;
}

miBoolean function_user_pointer(Query& query) {
    Element* function = function_of(query);
    return function && function->shader ? query.give(&function->shader->user) : miFALSE;
}

miBoolean function_tag(Query& query) {
    const Element* function = function_of(query);
    return function ? query.give(function->tag) : miFALSE;
}

miBoolean function_lock(Query& query) {
    Element* function = function_of(query);
    return function ? query.give(&function->as<miFunction>()->lock) : miFALSE;
}

miBoolean function_name(Query& query) {
    const Element* function = function_of(query);
    return function ? query.give(function->name.c_str()) : miFALSE;
}

// The record that holds the parameters: the function itself or the one that it takes them from.
miFunction* parameter_holder(const Query& query) {
    Element* function = function_of(query);
    if (!function)
        return nullptr;
    const Scene* scene = scene_of(query.state);
    const miTag indirect = function->as<miFunction>()->parameter_indirect;
    if (indirect == miNULLTAG || !scene)
        return function->as<miFunction>();
    return scene->database.record<miFunction>(indirect, miSCENE_FUNCTION);
}

miBoolean function_parameters(Query& query) {
    miFunction* holder = parameter_holder(query);
    return holder ? query.give(static_cast<void*>(holder->parameters)) : miFALSE;
}

miBoolean function_parameter_size(Query& query) {
    const miFunction* holder = parameter_holder(query);
    return holder ? query.give(static_cast<int>(holder->parameter_size)) : miFALSE;
}

// A connected parameter has a value only while its shader runs, so only the running shader can ask for one.
miBoolean function_parameter_value(Query& query) {
    const char* name = va_arg(query.arguments, char*);
    const auto type = static_cast<miParam_type>(va_arg(query.arguments, int));
    const Element* function = function_of(query);
    miFunction* holder = parameter_holder(query);
    if (!holder || !name || !query.result || !function->shader || !function->shader->declaration)
        return miFALSE;
    const Param* param = function->shader->declaration->find(name);
    if (!param || param->type != type || type == miTYPE_ARRAY)
        return miFALSE;
    void* value = reinterpret_cast<char*>(holder->parameters) + param->offset;
    if (mi_parameter_is_connected(holder, value)) {
        if (!query.state || function->record != query.state->shader)
            return miFALSE;
        value = evaluate_parameter(query.state, value);
    }
    std::memcpy(query.result, value, param->size);
    return miTRUE;
}

// This thread's pointer of the running shader, or null.
void** thread_pointer(const Query& query) {
    Element* function = query.state && query.state->shader ? element_of(query.state->shader) : nullptr;
    if (!function || !function->shader || query.state->thread < 0)
        return nullptr;
    auto& pointers = function->shader->thread_user;
    const auto thread = static_cast<std::size_t>(query.state->thread);
    return thread < pointers.size() ? &pointers[thread] : nullptr;
}

miBoolean thread_get(Query& query) {
    void* const* slot = thread_pointer(query);
    return slot ? query.give(*slot) : miFALSE;
}

miBoolean thread_set(Query& query) {
    void** slot = thread_pointer(query);
    if (!slot || !query.result)
        return miFALSE;
    *slot = *static_cast<void**>(query.result);
    return miTRUE;
}

miBoolean thread_get_all(Query& query) {
    int* count = va_arg(query.arguments, int*);
    Element* function = query.state && query.state->shader ? element_of(query.state->shader) : nullptr;
    if (!function || !function->shader || !count)
        return miFALSE;
    *count = static_cast<int>(function->shader->thread_user.size());
    return query.give(function->shader->thread_user.data());
}

// ---- declarations ----

const Declaration* declaration_of(const Query& query) {
    if (const Element* declaration = query.element(miSCENE_FUNCTION_DECL))
        return declaration->declaration;
    const Element* function = function_of(query);
    return function && function->shader ? function->shader->declaration : nullptr;
}

template <auto member> miBoolean declaration_number(Query& query) {
    const Declaration* declaration = declaration_of(query);
    return declaration ? query.give(static_cast<int>(declaration->*member)) : miFALSE;
}

miBoolean declaration_name(Query& query) {
    const Declaration* declaration = declaration_of(query);
    return declaration ? query.give(declaration->name.c_str()) : miFALSE;
}

// In scalars. Whatever a shader returns has the room of a colour, unless it is a structure.
miBoolean declaration_result_size(Query& query) {
    const Declaration* declaration = declaration_of(query);
    if (!declaration)
        return miFALSE;
    const Param& result = declaration->result;
    return query.give(result.type == miTYPE_STRUCT ? static_cast<int>(result.size / sizeof(miScalar)) : 4);
}

miBoolean declaration_type(Query& query) {
    const Declaration* declaration = declaration_of(query);
    return declaration ? query.give(declaration->result.type) : miFALSE;
}

// A phenomenon has no code of its own, and a shader that nothing uses has none yet: there is nothing to lock.
miBoolean declaration_lock(Query& query) {
    const Declaration* declaration = declaration_of(query);
    return declaration && declaration->code ? query.give(&declaration->code->lock) : miFALSE;
}

constexpr std::array<const char*, miNTYPES> type_words = {
    "boolean", "integer",        "scalar",        "string",         "color", "vector",  "transform",
    "shader",  "scalar texture", "color texture", "vector texture", "light", "struct",  "array",
    "texture", "material",       "geometry",      "lightprofile",   "data",  "spectrum"};

// Parameters as a declaration in a scene file lists them.
std::string parameter_text(const std::vector<Param>& params) {
    std::string text;
    for (const Param& param : params) {
        if (!text.empty())
            text += ", ";
        const bool is_array = param.type == miTYPE_ARRAY && !param.members.empty();
        const Param& kind = is_array ? param.members.front() : param;
        text += is_array ? "array " : "";
        text += type_words[static_cast<std::size_t>(kind.type)];
        text += " \"" + param.name + "\"";
        if (kind.type == miTYPE_STRUCT)
            text += " { " + parameter_text(kind.members) + " }";
    }
    return text;
}

miBoolean declaration_parameters(Query& query) {
    const Declaration* declaration = declaration_of(query);
    if (!declaration)
        return miFALSE;
    // Callers keep the text, so each one is kept here, once.
    static std::mutex guard;
    static std::unordered_set<std::string> kept;
    const std::lock_guard lock(guard);
    return query.give(kept.insert(parameter_text(declaration->params)).first->c_str());
}

// ---- user data ----

miBoolean data_contents(Query& query) {
    Element* data = query.element(miSCENE_USERDATA);
    return data ? query.give(static_cast<void*>(data->as<miUserdata>()->parameters)) : miFALSE;
}

// Bytes of another machine show their order by where the 1 lies.
miBoolean data_needs_swap(Query& query) {
    const auto* data = query.record<miUserdata>(miSCENE_USERDATA);
    return data ? query.give(static_cast<miBoolean>(data->one != 1)) : miFALSE;
}

// ---- images ----

template <auto member> miBoolean image_size(Query& query) {
    Element* image = query.element(miSCENE_IMAGE);
    if (!image || !image_of(*image).valid())
        return miFALSE;
    return query.give(image_of(*image).record()->*member);
}

// ---- the frame ----

miBoolean light_count(Query& query) {
    const World* world = world_of(query.state);
    return world ? query.give(static_cast<int>(world->light_tags.size())) : miFALSE;
}

miBoolean light_list(Query& query) {
    const World* world = world_of(query.state);
    return world ? query.give(const_cast<miTag*>(world->light_tags.data())) : miFALSE;
}

miBoolean texture_count(Query& query) {
    if (!world_of(query.state))
        return miFALSE;
    const WorldInstance* instance = instance_of(query.state);
    const int count = instance && instance->triangles ? instance->triangles->texture_count : 0;
    return query.give(std::min(count, max_texture_spaces));
}

miBoolean renderer_version(Query& query) {
    return query.give("stage 0.1");
}

miBoolean build_date(Query& query) {
    return query.give(__DATE__);
}

miBoolean sample_moving(Query& query) {
    const World* world = world_of(query.state);
    if (!world)
        return miFALSE;
    const WorldInstance* instance = instance_of(query.state);
    return query.give(world->moving && instance && instance->has_motion ? 1 : 0);
}

// Nothing overrides samples here.
miBoolean sample_override(Query&) {
    return miFALSE;
}

miBoolean final_gather_state(Query& query) {
    if (!query.state)
        return miFALSE;
    return query.give(is_below_gathering(query.state) ? 1 : 0);
}

miBoolean call_type(Query& query) {
    return query.state ? query.give(query.state->call_type) : miFALSE;
}

// Every slot is present and in its own place, so that the indices just count.
miBoolean primitive_data(Query& query) {
    const int** indices = va_arg(query.arguments, const int**);
    const miUint** words = va_arg(query.arguments, const miUint**);
    const miRc_intersection* hit = world_of(query.state) ? hit_of(query.state) : nullptr;
    const miTriangles* triangles = hit ? instance_of(query.state)->triangles : nullptr;
    if (!triangles || !triangles->data || triangles->data_count <= 0 || !indices || !words)
        return miFALSE;
    const auto count = static_cast<std::size_t>(triangles->data_count);
    auto* counting = static_cast<int*>(context_of(query.state).arena.allocate(count * sizeof(int)));
    for (std::size_t i = 0; i < count; ++i)
        counting[i] = static_cast<int>(i);
    *indices = counting;
    *words = triangles->data + hit->triangle * count;
    return query.give(triangles->data_count);
}

// ---- matrices ----

template <Space space(const miState*), auto direction> miBoolean matrix(Query& query) {
    return world_of(query.state) ? query.give(space(query.state).*direction) : miFALSE;
}

// The matrices of something that moves are made for the query and live until the running shader returns.
template <auto direction> miBoolean object_matrix(Query& query) {
    if (!current_instance(query.state))
        return miFALSE;
    MovingSpace storage;
    const miScalar* found = object_space(query.state, storage).*direction;
    if (found != storage.to.m && found != storage.from.m)
        return query.give(found);
    void* memory = context_of(query.state).arena.allocate(sizeof(miMatrix));
    return query.give(static_cast<const miScalar*>(
        static_cast<const miScalar*>(std::memcpy(memory, found, sizeof(miMatrix)))));
}

// ---- the table ----

using Answer = miBoolean (*)(Query&);

struct Row {
    miQ_type code;
    Answer answer;
};

constexpr Row rows[] = {
    {miQ_INST_ITEM, field<miSCENE_INSTANCE, &miInstance::item>},
    {miQ_INST_PARENT, field<miSCENE_INSTANCE, &miInstance::parent>},
    {miQ_INST_GLOBAL_TO_LOCAL, instance_matrix<&miTransform::global_to_local>},
    {miQ_INST_LOCAL_TO_GLOBAL, instance_matrix<&miTransform::local_to_global>},
    {miQ_INST_MATERIAL, field<miSCENE_INSTANCE, &miInstance::material>},
    {miQ_INST_LABEL, field<miSCENE_INSTANCE, &miInstance::label>},
    {miQ_INST_NAME, instance_name},
    {miQ_INST_DATA, field<miSCENE_INSTANCE, &miInstance::userdata>},
    {miQ_GROUP_NKIDS, field<miSCENE_GROUP, &miGroup::no_kids>},
    {miQ_GROUP_KID, group_kid},
    {miQ_GROUP_DATA, field<miSCENE_GROUP, &miGroup::userdata>},
    {miQ_OBJ_TYPE, field<miSCENE_OBJECT, &miObject::type>},
    {miQ_OBJ_DATA, object_data},
    {miQ_LIGHT_TYPE, light<&miLight::type>},
    {miQ_LIGHT_AREA, light<&miLight::area>},
    {miQ_LIGHT_EXPONENT, light<&miLight::exponent>},
    {miQ_LIGHT_ORIGIN, light<&miLight::origin>},
    {miQ_LIGHT_DIRECTION, light<&miLight::direction>},
    {miQ_LIGHT_SPREAD, light<&miLight::spread>},
    {miQ_LIGHT_ENERGY, light_energy},
    {miQ_LIGHT_SHADER, light<&miLight::shader>},
    {miQ_MTL_OPAQUE, field<miSCENE_MATERIAL, &miMaterial::opaque>},
    {miQ_MTL_SHADER, field<miSCENE_MATERIAL, &miMaterial::shader>},
    {miQ_MTL_DISPLACE, field<miSCENE_MATERIAL, &miMaterial::displace>},
    {miQ_MTL_SHADOW, field<miSCENE_MATERIAL, &miMaterial::shadow>},
    {miQ_MTL_VOLUME, field<miSCENE_MATERIAL, &miMaterial::volume>},
    {miQ_MTL_ENVIRONMENT, field<miSCENE_MATERIAL, &miMaterial::environment>},
    {miQ_MTL_CONTOUR, field<miSCENE_MATERIAL, &miMaterial::contour>},
    {miQ_MTL_PHOTON, field<miSCENE_MATERIAL, &miMaterial::photon>},
    {miQ_MTL_PHOTONVOL, field<miSCENE_MATERIAL, &miMaterial::photonvol>},
    {miQ_MTL_LIGHTMAP, field<miSCENE_MATERIAL, &miMaterial::lightmap>},
    {miQ_FUNC_USERPTR, function_user_pointer},
    {miQ_FUNC_TAG, function_tag},
    {miQ_FUNC_DECL, function_field<&miFunction::function_decl>},
    {miQ_FUNC_INDIRECT, function_field<&miFunction::parameter_indirect>},
    {miQ_FUNC_NEXT, function_field<&miFunction::next_function>},
    {miQ_FUNC_LOCK, function_lock},
    {miQ_FUNC_NAME, function_name},
    {miQ_FUNC_PARAM, function_parameters},
    {miQ_FUNC_PARAM_SIZE, function_parameter_size},
    {miQ_FUNC_PARAM_VALUE, function_parameter_value},
    {miQ_FUNC_TLS_GET, thread_get},
    {miQ_FUNC_TLS_SET, thread_set},
    {miQ_FUNC_TLS_GETALL, thread_get_all},
    {miQ_FUNC_CALLTYPE, call_type},
    {miQ_DECL_LOCK, declaration_lock},
    {miQ_DECL_NAME, declaration_name},
    {miQ_DECL_PARAM, declaration_parameters},
    {miQ_DECL_RESULT_SIZE, declaration_result_size},
    {miQ_DECL_TYPE, declaration_type},
    {miQ_DECL_VERSION, declaration_number<&Declaration::version>},
    {miQ_NUM_GLOBAL_LIGHTS, light_count},
    {miQ_GLOBAL_LIGHTS, light_list},
    {miQ_NUM_TEXTURES, texture_count},
    {miQ_RENDERER_VERSION, renderer_version},
    {miQ_DATE, build_date},
    {miQ_SAMPLE_MOVING, sample_moving},
    {miQ_SAMPLE_OVERRIDE, sample_override},
    {miQ_FINALGATHER_STATE, final_gather_state},
    {miQ_PRI_DATA, primitive_data},
    {miQ_DATA_NEXT, field<miSCENE_USERDATA, &miUserdata::next_data>},
    {miQ_DATA_DECL, field<miSCENE_USERDATA, &miUserdata::data_decl>},
    {miQ_DATA_PARAM, data_contents},
    {miQ_DATA_LABEL, field<miSCENE_USERDATA, &miUserdata::label>},
    {miQ_DATA_NEEDSWAP, data_needs_swap},
    {miQ_DATA_PARAM_SIZE, field<miSCENE_USERDATA, &miUserdata::parameter_size>},
    {miQ_IMAGE_WIDTH, image_size<&miImg_image::width>},
    {miQ_IMAGE_HEIGHT, image_size<&miImg_image::height>},
    {miQ_TRANS_INTERNAL_TO_WORLD, matrix<world_space, &Space::to>},
    {miQ_TRANS_INTERNAL_TO_CAMERA, matrix<camera_space, &Space::to>},
    {miQ_TRANS_INTERNAL_TO_OBJECT, object_matrix<&Space::to>},
    {miQ_TRANS_WORLD_TO_INTERNAL, matrix<world_space, &Space::from>},
    {miQ_TRANS_CAMERA_TO_INTERNAL, matrix<camera_space, &Space::from>},
    {miQ_TRANS_OBJECT_TO_INTERNAL, object_matrix<&Space::from>},
};

constexpr std::size_t code_count = 162;

// The rows by code; null for codes that nobody knows.
constexpr auto answers = [] {
    std::array<Answer, code_count> table{};
    for (const Row& row : rows)
        table[static_cast<std::size_t>(row.code)] = row.answer;
    return table;
}();

} // namespace

} // namespace stage

STAGE_API miBoolean mi_vquery(const miQ_type code, miState* state, const miTag tag, void* result,
                              va_list args) {
    const auto number = static_cast<std::size_t>(code);
    if (number >= stage::code_count || !stage::answers[number])
        return miFALSE;
    stage::Query query = {state, tag, result, args};
    return stage::answers[number](query);
}

STAGE_API miBoolean mi_query(const miQ_type code, miState* state, const miTag tag, void* result, ...) {
    va_list args;
    va_start(args, result);
    const miBoolean known = mi_vquery(code, state, tag, result, args);
    va_end(args);
    return known;
}
