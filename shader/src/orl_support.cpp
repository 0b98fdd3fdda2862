/*
 * What the host attaches to a scene: the scene record on the options, the node records on instances, the
 * object records on objects and the data words of triangles. Missing records read as null, 0 or -1.
 */
#include "orl_support.h"
#include "orlshaderapi.h"

namespace orl {
namespace {

// Whether the elements of an array lie in its record's block of `size` bytes.
template <class Record, class ArrayRecord>
bool array_fits(const Record* record, ArrayRecord Record::*member, std::size_t size) {
    const ArrayRecord& array = record->*member;
    if (array.count <= 0)
        return true;
    const auto start = static_cast<std::size_t>(reinterpret_cast<const char*>(&array) -
                                                reinterpret_cast<const char*>(record)) +
                       offsetof(ArrayRecord, elements);
    const std::size_t room = (size - start) / sizeof(ElementOf<ArrayRecord>);
    return array.first >= 0 &&
           static_cast<std::size_t>(array.first) + static_cast<std::size_t>(array.count) <= room;
}

bool arrays_fit(const orl_SceneData*, std::size_t) {
    return true;
}

bool arrays_fit(const orl_CameraData*, std::size_t) {
    return true;
}

bool arrays_fit(const orl_NodeData* node, std::size_t size) {
    return array_fits(node, &orl_NodeData::shadow_lights, size) &&
           array_fits(node, &orl_NodeData::lights, size);
}

bool arrays_fit(const orl_ObjectData* object, std::size_t size) {
    return array_fits(object, &orl_ObjectData::uv_channels, size);
}

const void* block(miState* state, miTag data) {
    void* contents = nullptr;
    return data != miNULLTAG && mi_query(miQ_DATA_PARAM, state, data, &contents) ? contents : nullptr;
}

// A scene may hold blocks of raw bytes where a record belongs, so the size is not taken on trust.
template <class Record> const Record* data_record(miState* state, miTag data) {
    const auto* const record = static_cast<const Record*>(block(state, data));
    int size = 0;
    if (record == nullptr || !mi_query(miQ_DATA_PARAM_SIZE, state, data, &size) ||
        size < static_cast<int>(sizeof(Record)) || !arrays_fit(record, static_cast<std::size_t>(size)))
        return nullptr;
    return record;
}

// Data words of the triangle that was hit, by slot.
constexpr int material_and_edges = 0;
constexpr int smoothing_groups = 1;
constexpr int particle = 2;

// The word of a slot; false when the triangle has none there.
bool triangle_word(miState* state, int slot, miUint& word) {
    int slots = 0;
    const int* index = nullptr;
    const miUint* words = nullptr;
    if (state == nullptr || !mi_query(miQ_PRI_DATA, state, miNULLTAG, &slots, &index, &words))
        return false;
    if (slot >= slots || index == nullptr || words == nullptr || index[slot] < 0)
        return false;
    word = words[index[slot]];
    return true;
}

miUint triangle_word_or_0(miState* state, int slot) {
    miUint word = 0;
    return triangle_word(state, slot, word) ? word : 0;
}

// The light of the light instance that is being sampled, null when there is none.
miTag sampled_light(const miState* state) {
    if (state->light_instance == miNULLTAG)
        return miNULLTAG;
    int type = 0;
    const void* const record = mi_db_access_type(state->light_instance, &type);
    const bool is_instance = record != nullptr && type == miSCENE_INSTANCE;
    const miTag light = is_instance ? static_cast<const miInstance*>(record)->item : miNULLTAG;
    mi_db_unpin(state->light_instance);
    return light;
}

// Whether a tag is the light or an instance of it; scenes list either.
bool is_light(miState* state, miTag tag, miTag light) {
    miTag item = miNULLTAG;
    return tag == light || (tag != miNULLTAG && mi_query(miQ_INST_ITEM, state, tag, &item) && item == light);
}

// Whether an element of a list of lights is the light or a group with the light in it.
bool names_light(miState* state, miTag element, miTag light) {
    int members = 0;
    if (element == miNULLTAG)
        return false;
    if (!mi_query(miQ_GROUP_NKIDS, state, element, &members) || members < 1)
        return is_light(state, element, light);
    for (int k = 0; k < members; ++k) {
        miTag member = miNULLTAG;
        if (mi_query(miQ_GROUP_KID, state, element, &member, k) && is_light(state, member, light))
            return true;
    }
    return false;
}

template <class T> void give(T* place, const T& value) {
    if (place != nullptr)
        *place = value;
}

} // namespace

bool is_material_editor(miState* state) {
    const orl_SceneData* const scene = GetSceneData(state);
    return scene != nullptr && scene->material_editor;
}

const orl_CameraData* camera_data(miState* state) {
    if (state == nullptr || state->camera == nullptr)
        return nullptr;
    return data_record<orl_CameraData>(state, state->camera->userdata);
}

} // namespace orl

ORL_EXPORT const orl_SceneData* GetSceneData(miState* state) {
    if (state == nullptr || state->options == nullptr)
        return nullptr;
    return orl::data_record<orl_SceneData>(state, state->options->userdata);
}

ORL_EXPORT const orl_NodeData* GetNodeData(miTag instance) {
    miTag data = miNULLTAG;
    if (instance == miNULLTAG || !mi_query(miQ_INST_DATA, nullptr, instance, &data))
        return nullptr;
    return orl::data_record<orl_NodeData>(nullptr, data);
}

ORL_EXPORT const orl_ObjectData* GetObjectData(miState* state) {
    miTag data = miNULLTAG;
    if (state == nullptr || !mi_query(miQ_OBJ_DATA, state, miNULLTAG, &data))
        return nullptr;
    return orl::data_record<orl_ObjectData>(state, data);
}

ORL_EXPORT const orl_ObjectData* GetObjectDataFromInstance(miTag instance) {
    if (instance == miNULLTAG)
        return nullptr;
    miTag data = miNULLTAG;
    int type = 0;
    const void* const record = mi_db_access_type(instance, &type);
    if (record != nullptr && type == miSCENE_INSTANCE) {
        if (const miTag item = static_cast<const miInstance*>(record)->item) {
            const void* const object = mi_db_access_type(item, &type);
            if (object != nullptr && type == miSCENE_OBJECT)
                data = static_cast<const miObject*>(object)->userdata;
            mi_db_unpin(item);
        }
    }
    mi_db_unpin(instance);
    return orl::data_record<orl_ObjectData>(nullptr, data);
}

ORL_EXPORT const void* GetParticleData(miState* state, const orl_ObjectData* object) {
    return object ? orl::block(state, object->particle_data) : nullptr;
}

ORL_EXPORT miInteger GetMaterialID(miState* state) {
    return static_cast<miInteger>(orl::triangle_word_or_0(state, orl::material_and_edges) & 0xffffu);
}

ORL_EXPORT void GetEdgeVisibility(miState* state, miBoolean* edge_0, miBoolean* edge_1, miBoolean* edge_2) {
    miUint word = 0;
    const bool known = orl::triangle_word(state, orl::material_and_edges, word);
    const auto visible = [=](unsigned bit) -> miBoolean { return !known || (word & 1u << bit) != 0; };
    orl::give(edge_0, visible(16));
    orl::give(edge_1, visible(17));
    orl::give(edge_2, visible(18));
}

ORL_EXPORT miInteger GetFaceSmoothingGroup(miState* state) {
    return static_cast<miInteger>(orl::triangle_word_or_0(state, orl::smoothing_groups));
}

ORL_EXPORT miInteger GetParticleID(miState* state) {
    return static_cast<miInteger>(orl::triangle_word_or_0(state, orl::particle));
}

ORL_EXPORT miBoolean GetTangentBasisVectors(miState* state, miVector* u, miVector* v) {
    const bool known = state != nullptr && state->bump_x_list != nullptr && state->bump_y_list != nullptr;
    orl::give(u, known ? state->bump_x_list[0] : miVector{});
    orl::give(v, known ? state->bump_y_list[0] : miVector{});
    return known;
}

// Deliberate: the two directions are not the same function. The host writes scenes of both kinds, and its
// scene record says whether an id is a channel number to be found or a position to be mapped.
ORL_EXPORT miInteger GetUVChannelIndexFromID(miState* state, const orl_ObjectData* object, miInteger id) {
    if (object == nullptr)
        object = GetObjectData(state);
    if (object == nullptr)
        return -1;
    const auto channels = orl::elements(object, &orl_ObjectData::uv_channels);
    const orl_SceneData* const scene = GetSceneData(state);
    if (scene != nullptr && scene->map_channel_ids) {
        for (miInteger k = 0; k < channels.size(); ++k)
            if (channels[k] == id)
                return k;
        return -1;
    }
    return id >= 0 && id < channels.size() ? channels[id] : -1;
}

ORL_EXPORT miBoolean IsInstanceShadowMakerForLight(miState* state, const orl_NodeData* node) {
    if (node == nullptr || node->shadows_from_all_lights || state == nullptr || state->instance == miNULLTAG)
        return miTRUE;
    const miTag light = orl::sampled_light(state);
    if (light == miNULLTAG)
        return miFALSE;
    for (const miTag element : orl::elements(node, &orl_NodeData::shadow_lights))
        if (orl::names_light(state, element, light))
            return miTRUE;
    return miFALSE;
}
