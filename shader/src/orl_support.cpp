/*
 * What the host attaches to a scene: the scene record on the options, the node records on instances, the
 * object records on objects and the data words of triangles. Missing records read as null, 0 or -1.
 */
#include "orl_support.h"
#include "orlshaderapi.h"

namespace orl {
namespace {

template <class Record> const Record* data_record(miState* state, miTag data) {
    void* record = nullptr;
    if (data == miNULLTAG || !mi_query(miQ_DATA_PARAM, state, data, &record))
        return nullptr;
    return static_cast<const Record*>(record);
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
    if (!mi_query(miQ_PRI_DATA, state, miNULLTAG, &slots, &index, &words))
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

// The light of the light instance that is being sampled.
miTag sampled_light(const miState* state) {
    if (state->light_instance == miNULLTAG)
        return miNULLTAG;
    const auto* const instance = static_cast<const miInstance*>(mi_db_access(state->light_instance));
    const miTag light = instance ? instance->item : miNULLTAG;
    mi_db_unpin(state->light_instance);
    return light;
}

// Whether an element of a list of lights is the light or a group with the light in it.
bool names_light(miState* state, miTag element, miTag light) {
    int members = 0;
    if (!mi_query(miQ_GROUP_NKIDS, state, element, &members) || members < 1)
        return element == light;
    for (int k = 0; k < members; ++k) {
        miTag member = miNULLTAG;
        if (mi_query(miQ_GROUP_KID, state, element, &member, k) && member == light)
            return true;
    }
    return false;
}

} // namespace
} // namespace orl

ORL_EXPORT const orl_SceneData* GetSceneData(miState* state) {
    return state->options ? orl::data_record<orl_SceneData>(state, state->options->userdata) : nullptr;
}

ORL_EXPORT const orl_NodeData* GetNodeData(miTag instance) {
    miTag data = miNULLTAG;
    if (instance == miNULLTAG || !mi_query(miQ_INST_DATA, nullptr, instance, &data))
        return nullptr;
    return orl::data_record<orl_NodeData>(nullptr, data);
}

ORL_EXPORT const orl_ObjectData* GetObjectData(miState* state) {
    miTag data = miNULLTAG;
    if (!mi_query(miQ_OBJ_DATA, state, miNULLTAG, &data))
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
    return object ? orl::data_record<void>(state, object->particle_data) : nullptr;
}

ORL_EXPORT miInteger GetMaterialID(miState* state) {
    return static_cast<miInteger>(orl::triangle_word_or_0(state, orl::material_and_edges) & 0xffffu);
}

ORL_EXPORT void GetEdgeVisibility(miState* state, miBoolean* edge_0, miBoolean* edge_1, miBoolean* edge_2) {
    miUint word = 0;
    const bool known = orl::triangle_word(state, orl::material_and_edges, word);
    *edge_0 = !known || (word & 1u << 16) != 0;
    *edge_1 = !known || (word & 1u << 17) != 0;
    *edge_2 = !known || (word & 1u << 18) != 0;
}

ORL_EXPORT miInteger GetFaceSmoothingGroup(miState* state) {
    return static_cast<miInteger>(orl::triangle_word_or_0(state, orl::smoothing_groups));
}

ORL_EXPORT miInteger GetParticleID(miState* state) {
    return static_cast<miInteger>(orl::triangle_word_or_0(state, orl::particle));
}

ORL_EXPORT miBoolean GetTangentBasisVectors(miState* state, miVector* u, miVector* v) {
    const bool known = state->bump_x_list != nullptr && state->bump_y_list != nullptr;
    *u = known ? state->bump_x_list[0] : miVector{};
    *v = known ? state->bump_y_list[0] : miVector{};
    return known;
}

// The scene record decides whether an id is a channel number to be found or a position to be mapped.
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
    if (node->shadows_from_all_lights || state->instance == miNULLTAG)
        return miTRUE;
    const miTag light = orl::sampled_light(state);
    for (const miTag element : orl::elements(node, &orl_NodeData::shadow_lights))
        if (orl::names_light(state, element, light))
            return miTRUE;
    return miFALSE;
}
