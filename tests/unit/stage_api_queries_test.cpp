// Queries, the database and names, the interface object, and functions that are not supported yet.
#include <string>
#include <vector>

#include "kit/memory.h"
#include "kit/message.h"
#include "stage_api_scene.h"

namespace {

using namespace stage_test;

// The answer to a query without further arguments; a failed expectation when there is none.
template <class Value> Value answer(Stage& stage, miQ_type code, miTag tag) {
    Value value{};
    EXPECT_TRUE(mi_query(code, &stage.state, tag, &value)) << "query " << code;
    return value;
}

bool unanswered(Stage& stage, miQ_type code, miTag tag) {
    std::array<char, 64> untouched;
    untouched.fill('x');
    const std::array<char, 64> before = untouched;
    // Every query finds room for a result and pointers where it expects further arguments.
    std::array<char, 64> first{}, second{};
    return mi_query(code, &stage.state, tag, untouched.data(), first.data(), second.data()) == miFALSE &&
           untouched == before;
}

// Adds a shader instance with a parameter block of (scalar "a", color "b", array of integers "c").
struct Shader {
    struct Block {
        miScalar a;
        miColor b;
        int i_c, n_c;
        miInteger c[1];
    };
    stage::Declaration declaration;
    stage::ShaderCode code;
    stage::Element *declared, *function;

    Shader(Stage& stage, const std::string& name) {
        declaration.name = "tint";
        declaration.version = 7;
        declaration.result.type = miTYPE_COLOR;
        declaration.result.size = sizeof(miColor);
        declaration.params = {param("a", miTYPE_SCALAR, offsetof(Block, a), sizeof(miScalar)),
                              param("b", miTYPE_COLOR, offsetof(Block, b), sizeof(miColor)),
                              param("c", miTYPE_ARRAY, offsetof(Block, i_c), 3 * sizeof(int))};
        declaration.params[2].members = {param("c", miTYPE_INTEGER, 0, sizeof(int))};
        declaration.code = &code;
        declared = &stage.add(miSCENE_FUNCTION_DECL, "tint", sizeof(miFunction_decl));
        declared->declaration = &declaration;
        function = &stage.add(miSCENE_FUNCTION, name, sizeof(miFunction) + sizeof(Block));
        function->shader = std::make_unique<stage::ShaderInstance>();
        function->shader->declaration = &declaration;
        function->shader->code = &code;
        function->shader->thread_user.resize(2);
        auto* record = function->as<miFunction>();
        record->reserved[0] = function;
        record->function_decl = declared->tag;
        record->next_function = 555;
        record->parameter_size = sizeof(Block);
        const Block block = {2.5f, {1, 2, 3, 4}, 0, 1, {9}};
        std::memcpy(record->parameters, &block, sizeof block);
    }
    static stage::Param param(const char* name, miParam_type type, std::size_t offset, std::size_t size) {
        stage::Param p;
        p.name = name;
        p.type = type;
        p.offset = static_cast<std::uint32_t>(offset);
        p.size = static_cast<std::uint32_t>(size);
        return p;
    }
};

TEST(Queries, InstancesAndGroups) {
    Stage stage(false);
    const miTag tag = stage.instance->tag;
    auto* record = stage.instance->as<miInstance>();
    record->material = 21;
    record->parent = 22;
    record->userdata = 23;
    EXPECT_EQ(answer<miTag>(stage, miQ_INST_ITEM, tag), stage.object->tag);
    EXPECT_EQ(answer<miTag>(stage, miQ_INST_PARENT, tag), 22u);
    EXPECT_EQ(answer<miTag>(stage, miQ_INST_MATERIAL, tag), 21u);
    EXPECT_EQ(answer<miTag>(stage, miQ_INST_DATA, tag), 23u);
    EXPECT_EQ(answer<miUint>(stage, miQ_INST_LABEL, tag), 77u);
    EXPECT_STREQ(answer<const char*>(stage, miQ_INST_NAME, tag), "square_inst");
    EXPECT_EQ(answer<const miScalar*>(stage, miQ_INST_GLOBAL_TO_LOCAL, tag), record->tf.global_to_local);
    EXPECT_EQ(answer<const miScalar*>(stage, miQ_INST_LOCAL_TO_GLOBAL, tag), record->tf.local_to_global);
    stage.instance->name.clear();
    EXPECT_EQ(answer<const char*>(stage, miQ_INST_NAME, tag), nullptr);
    EXPECT_TRUE(unanswered(stage, miQ_INST_ITEM, stage.object->tag));

    EXPECT_EQ(answer<int>(stage, miQ_GROUP_NKIDS, stage.group->tag), 3);
    miTag kid = 0;
    EXPECT_TRUE(mi_query(miQ_GROUP_KID, &stage.state, stage.group->tag, &kid, 2));
    EXPECT_EQ(kid, tag);
    EXPECT_FALSE(mi_query(miQ_GROUP_KID, &stage.state, stage.group->tag, &kid, 3));
    EXPECT_FALSE(mi_query(miQ_GROUP_KID, &stage.state, stage.group->tag, &kid, -1));
    EXPECT_TRUE(unanswered(stage, miQ_GROUP_NKIDS, tag)) << "an instance is no group";
    EXPECT_TRUE(unanswered(stage, miQ_GROUP_NKIDS, 999999));
}

TEST(Queries, LightsByTheirOwnTagAndThatOfAnInstance) {
    Stage stage(false);
    for (const miTag tag : {stage.light->tag, stage.light_instance->tag}) {
        EXPECT_EQ(answer<int>(stage, miQ_LIGHT_TYPE, tag), miLIGHT_SPOT);
        EXPECT_EQ(answer<int>(stage, miQ_LIGHT_AREA, tag), miLIGHT_DISC);
        EXPECT_EQ(answer<miScalar>(stage, miQ_LIGHT_EXPONENT, tag), 2.0f);
        EXPECT_EQ(answer<miVector>(stage, miQ_LIGHT_ORIGIN, tag).y, 8.0f);
        EXPECT_EQ(answer<miVector>(stage, miQ_LIGHT_DIRECTION, tag).z, -1.0f);
        EXPECT_EQ(answer<miScalar>(stage, miQ_LIGHT_SPREAD, tag), 0.75f);
        EXPECT_EQ(answer<miColor>(stage, miQ_LIGHT_ENERGY, tag).b, 3.0f);
        EXPECT_EQ(answer<miTag>(stage, miQ_LIGHT_SHADER, tag), 4321u);
    }
    EXPECT_TRUE(unanswered(stage, miQ_LIGHT_TYPE, stage.instance->tag)) << "an instance of something else";
    EXPECT_EQ(answer<int>(stage, miQ_NUM_GLOBAL_LIGHTS, miNULLTAG), 1);
    EXPECT_EQ(answer<miTag*>(stage, miQ_GLOBAL_LIGHTS, miNULLTAG)[0], stage.light_instance->tag);
}

TEST(Queries, MaterialsHaveTheirSlotsInOrder) {
    Stage stage(false);
    stage::Element& e = stage.add(miSCENE_MATERIAL, "m", sizeof(miMaterial));
    *e.as<miMaterial>() = {miTRUE, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40};
    EXPECT_EQ(answer<int>(stage, miQ_MTL_OPAQUE, e.tag), miTRUE);
    const miQ_type codes[] = {miQ_MTL_SHADER, miQ_MTL_DISPLACE,    miQ_MTL_SHADOW,
                              miQ_MTL_VOLUME, miQ_MTL_ENVIRONMENT, miQ_MTL_CONTOUR,
                              miQ_MTL_PHOTON, miQ_MTL_PHOTONVOL,   miQ_MTL_LIGHTMAP};
    miTag want = 31;
    for (const miQ_type code : codes)
        EXPECT_EQ(answer<miTag>(stage, code, e.tag), want++);
}

TEST(Queries, ShaderInstancesByTagAndAsTheRunningOne) {
    Stage stage(false);
    Shader shader(stage, "inst");
    auto* record = shader.function->as<miFunction>();
    stage.state.shader = record;
    for (const miTag tag : {shader.function->tag, miNULLTAG}) {
        EXPECT_EQ(answer<miTag>(stage, miQ_FUNC_TAG, tag), shader.function->tag);
        EXPECT_EQ(answer<miTag>(stage, miQ_FUNC_DECL, tag), shader.declared->tag);
        EXPECT_EQ(answer<miTag>(stage, miQ_FUNC_NEXT, tag), 555u);
        EXPECT_EQ(answer<miTag>(stage, miQ_FUNC_INDIRECT, tag), miNULLTAG);
        EXPECT_EQ(answer<miLock*>(stage, miQ_FUNC_LOCK, tag), &record->lock);
        EXPECT_STREQ(answer<const char*>(stage, miQ_FUNC_NAME, tag), "inst");
        EXPECT_EQ(answer<void*>(stage, miQ_FUNC_PARAM, tag), record->parameters);
        EXPECT_EQ(answer<int>(stage, miQ_FUNC_PARAM_SIZE, tag), static_cast<int>(sizeof(Shader::Block)));
        EXPECT_EQ(answer<void**>(stage, miQ_FUNC_USERPTR, tag), &shader.function->shader->user);
        EXPECT_EQ(answer<miLock*>(stage, miQ_DECL_LOCK, tag), &shader.code.lock);
        EXPECT_STREQ(answer<const char*>(stage, miQ_DECL_NAME, tag), "tint");
        EXPECT_STREQ(answer<const char*>(stage, miQ_DECL_PARAM, tag),
                     "scalar \"a\", color \"b\", array integer \"c\"");
        EXPECT_EQ(answer<int>(stage, miQ_DECL_RESULT_SIZE, tag), 16);
        EXPECT_EQ(answer<int>(stage, miQ_DECL_TYPE, tag), miTYPE_COLOR);
        EXPECT_EQ(answer<int>(stage, miQ_DECL_VERSION, tag), 7);
        miColor b{};
        EXPECT_TRUE(mi_query(miQ_FUNC_PARAM_VALUE, &stage.state, tag, &b, "b", miTYPE_COLOR));
        EXPECT_EQ(b.g, 2.0f);
        EXPECT_FALSE(mi_query(miQ_FUNC_PARAM_VALUE, &stage.state, tag, &b, "b", miTYPE_SCALAR));
        EXPECT_FALSE(mi_query(miQ_FUNC_PARAM_VALUE, &stage.state, tag, &b, "z", miTYPE_COLOR));
    }
    EXPECT_STREQ(answer<const char*>(stage, miQ_DECL_NAME, shader.declared->tag), "tint");
    stage.state.shader = nullptr;
    EXPECT_TRUE(unanswered(stage, miQ_FUNC_USERPTR, miNULLTAG));
    EXPECT_TRUE(unanswered(stage, miQ_DECL_VERSION, stage.object->tag));
}

TEST(Queries, ParametersMayBelongToAnotherInstance) {
    Stage stage(false);
    Shader own(stage, "own"), other(stage, "other");
    own.function->as<miFunction>()->parameter_indirect = other.function->tag;
    EXPECT_EQ(answer<miTag>(stage, miQ_FUNC_INDIRECT, own.function->tag), other.function->tag);
    EXPECT_EQ(answer<void*>(stage, miQ_FUNC_PARAM, own.function->tag),
              other.function->as<miFunction>()->parameters);
}

TEST(Queries, ThreadPointersAreKeptApart) {
    Stage stage(false);
    Shader shader(stage, "inst");
    stage.state.shader = shader.function->as<miFunction>();
    int first = 0, second = 0;
    for (int* value : {&first, &second}) {
        stage.state.thread = value == &first ? short{0} : short{1};
        EXPECT_EQ(answer<void*>(stage, miQ_FUNC_TLS_GET, miNULLTAG), nullptr);
        void* pointer = value;
        EXPECT_TRUE(mi_query(miQ_FUNC_TLS_SET, &stage.state, miNULLTAG, &pointer));
        EXPECT_EQ(answer<void*>(stage, miQ_FUNC_TLS_GET, miNULLTAG), value);
    }
    void** all = nullptr;
    int count = 0;
    EXPECT_TRUE(mi_query(miQ_FUNC_TLS_GETALL, &stage.state, miNULLTAG, &all, &count));
    ASSERT_EQ(count, 2);
    EXPECT_EQ(all[0], &first);
    EXPECT_EQ(all[1], &second);
    stage.state.thread = 2;
    EXPECT_TRUE(unanswered(stage, miQ_FUNC_TLS_GET, miNULLTAG));
}

// A nested call does not hide what its caller was called as.
TEST(Queries, CallTypeBelongsToTheState) {
    Stage stage(false);
    stage.state.call_type = miSHADER_SHADOW;
    miState nested = stage.state;
    nested.parent = &stage.state;
    nested.call_type = miSHADER_TEXTURE;
    int type = -1;
    EXPECT_TRUE(mi_query(miQ_FUNC_CALLTYPE, &nested, miNULLTAG, &type));
    EXPECT_EQ(type, miSHADER_TEXTURE);
    EXPECT_TRUE(mi_query(miQ_FUNC_CALLTYPE, nested.parent, miNULLTAG, &type));
    EXPECT_EQ(type, miSHADER_SHADOW);

    EXPECT_TRUE(mi_query(miQ_FINALGATHER_STATE, &nested, miNULLTAG, &type));
    EXPECT_EQ(type, 0);
    stage.state.type = miRAY_FINALGATHER;
    EXPECT_TRUE(mi_query(miQ_FINALGATHER_STATE, &nested, miNULLTAG, &type));
    EXPECT_EQ(type, 1);
}

TEST(Queries, UserDataAndObjects) {
    Stage stage(false);
    stage::Element& e = stage.add(miSCENE_USERDATA, "data", sizeof(miUserdata) + 8);
    auto* data = e.as<miUserdata>();
    data->data_decl = 41;
    data->next_data = 42;
    data->label = 43;
    data->parameter_size = 16;
    data->one = 1;
    EXPECT_EQ(answer<miTag>(stage, miQ_DATA_DECL, e.tag), 41u);
    EXPECT_EQ(answer<miTag>(stage, miQ_DATA_NEXT, e.tag), 42u);
    EXPECT_EQ(answer<miUint>(stage, miQ_DATA_LABEL, e.tag), 43u);
    EXPECT_EQ(answer<int>(stage, miQ_DATA_PARAM_SIZE, e.tag), 16);
    EXPECT_EQ(answer<void*>(stage, miQ_DATA_PARAM, e.tag), data->parameters);
    EXPECT_EQ(answer<miBoolean>(stage, miQ_DATA_NEEDSWAP, e.tag), miFALSE);
    data->one = 256; // a 1 in the other order of bytes
    EXPECT_EQ(answer<miBoolean>(stage, miQ_DATA_NEEDSWAP, e.tag), miTRUE);

    stage.object->as<miObject>()->userdata = e.tag;
    EXPECT_EQ(answer<miTag>(stage, miQ_OBJ_DATA, stage.object->tag), e.tag);
    EXPECT_EQ(answer<miTag>(stage, miQ_OBJ_DATA, miNULLTAG), e.tag) << "the object that was hit";
    EXPECT_EQ(answer<int>(stage, miQ_OBJ_TYPE, stage.object->tag), miOBJECT_POLYGONS);
    EXPECT_EQ(answer<int>(stage, miQ_NUM_TEXTURES, miNULLTAG), 2);

    const int* indices = nullptr;
    const miUint* words = nullptr;
    int slots = 0;
    ASSERT_TRUE(mi_query(miQ_PRI_DATA, &stage.state, miNULLTAG, &slots, &indices, &words));
    ASSERT_EQ(slots, 2);
    EXPECT_EQ(words[indices[0]], 21u); // triangle 1
    EXPECT_EQ(words[indices[1]], 22u);

    stage.state.pri = nullptr;
    stage.state.instance = miNULLTAG;
    EXPECT_EQ(answer<int>(stage, miQ_NUM_TEXTURES, miNULLTAG), 0);
    EXPECT_TRUE(unanswered(stage, miQ_OBJ_DATA, miNULLTAG));
    EXPECT_TRUE(unanswered(stage, miQ_PRI_DATA, miNULLTAG));
}

TEST(Queries, EveryOtherCodeIsUnknown) {
    Stage stage(false);
    for (const int code : {-1, 0, 1, 9, 17, 80, 110, 125, 141, 150, 160, 162, 1000000}) {
        // Through a variable, as a shader of a later interface might ask.
        miQ_type unknown;
        std::memcpy(&unknown, &code, sizeof code);
        EXPECT_TRUE(unanswered(stage, unknown, stage.instance->tag)) << code;
    }
    EXPECT_TRUE(unanswered(stage, miQ_SAMPLE_OVERRIDE, miNULLTAG));
    EXPECT_NE(answer<const char*>(stage, miQ_RENDERER_VERSION, miNULLTAG), nullptr);
    EXPECT_NE(answer<const char*>(stage, miQ_DATE, miNULLTAG), nullptr);
}

TEST(Queries, MotionIsThatOfWhatWasHit) {
    Stage still(false);
    EXPECT_EQ(answer<int>(still, miQ_SAMPLE_MOVING, miNULLTAG), 0);
    Stage moving(false, true);
    EXPECT_NE(answer<int>(moving, miQ_SAMPLE_MOVING, miNULLTAG), 0);
}

// Collects what is reported while it lives.
struct Messages {
    std::vector<std::string> texts;
    Messages() {
        stage::set_message_sink(
            [this](stage::MessageLevel, std::string_view text) { texts.emplace_back(text); });
    }
    ~Messages() { stage::set_message_sink(nullptr); }
};

TEST(Database, AccessByTagAndName) {
    Stage stage(false);
    const miTag tag = stage.object->tag;
    int type = 0;
    EXPECT_EQ(mi_db_access(tag), stage.object->record);
    EXPECT_EQ(mi_db_access_type(tag, &type), stage.object->record);
    EXPECT_EQ(type, miSCENE_OBJECT);
    EXPECT_EQ(stage.object->pins.load(), 2);
    mi_db_unpin(tag);
    mi_db_unpin(tag);
    EXPECT_EQ(mi_db_type(tag), miSCENE_OBJECT);
    EXPECT_EQ(mi_db_type(999999), 0);
    EXPECT_EQ(mi_db_size(tag), static_cast<int>(sizeof(miObject)));

    Messages messages;
    mi_db_unpin(tag);
    ASSERT_EQ(messages.texts.size(), 1u);
    EXPECT_NE(messages.texts[0].find("\"square\""), std::string::npos) << messages.texts[0];
    EXPECT_EQ(stage.object->pins.load(), 0);

    // The lookup releases the string that it is given.
    const long long before = stage::memory_counts().live_blocks;
    EXPECT_EQ(mi_api_name_lookup(mi_mem_strdup("square")), tag);
    EXPECT_EQ(mi_api_name_lookup(mi_mem_strdup("no such thing")), miNULLTAG);
    EXPECT_EQ(mi_api_name_lookup(nullptr), miNULLTAG);
    EXPECT_EQ(stage::memory_counts().live_blocks, before);
}

TEST(DatabaseDeathTest, AMissingTagEndsTheProgramByName) {
    Stage stage(false);
    EXPECT_DEATH(mi_db_access(123456), "mi_db_access: tag 123456");
    stage.object->pins = 65535;
    EXPECT_DEATH(mi_db_access(stage.object->tag), "\"square\".*without mi_db_unpin");
}

TEST(InterfaceObject, ShowsTheBuffersOfACamera) {
    Stage stage(false);
    stage::Element& e = stage.add(miSCENE_FRAMEBUFFERS, "", 16);
    e.framebuffers.resize(2);
    e.framebuffers[0].name = "main";
    e.framebuffers[0].primary = true;
    e.framebuffers[1].name = "depth";
    e.framebuffers[1].datatype = "z";

    EXPECT_EQ(mi_get_shader_interface(2), nullptr);
    EXPECT_EQ(mi_get_shader_interface(4), nullptr);
    auto* object = mi_get_shader_interface(3);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->accessFramebuffer(stage.object->tag), nullptr);
    EXPECT_EQ(object->accessFramebuffer(miNULLTAG), nullptr);
    auto* buffers = object->accessFramebuffer(e.tag);
    ASSERT_NE(buffers, nullptr);

    size_t number = 99;
    EXPECT_TRUE(buffers->get_buffercount(number));
    EXPECT_EQ(number, 2u);
    EXPECT_TRUE(buffers->get_index("depth", number));
    EXPECT_EQ(number, 1u);
    EXPECT_FALSE(buffers->get_index("nothing", number));
    const char* text = nullptr;
    EXPECT_TRUE(buffers->get_buffername(1, text));
    EXPECT_STREQ(text, "depth");
    EXPECT_FALSE(buffers->get_buffername(2, text));
    miImg_type type;
    EXPECT_TRUE(buffers->get_datatype(1, type));
    EXPECT_EQ(type, miIMG_TYPE_Z);

    bool flag = false;
    int whole = 0;
    EXPECT_TRUE(buffers->get("main", "primary", flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(buffers->set("depth", "dpi", 300));
    EXPECT_TRUE(buffers->get("depth", "dpi", whole));
    EXPECT_EQ(whole, 300);
    EXPECT_TRUE(buffers->set("depth", "filename", "d.exr"));
    EXPECT_TRUE(buffers->get("depth", "filename", text));
    EXPECT_STREQ(text, "d.exr");
    EXPECT_FALSE(buffers->set("nothing", "dpi", 1));
    EXPECT_FALSE(buffers->set("main", "colour", 1));
    object->releaseFramebuffer(buffers);
    object->release();
}

TEST(Unsupported, IsReportedOnceByName) {
    Stage stage(false);
    Messages messages;
    miColor color = {1, 2, 3, 4};
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(mi_store_photon(&color, &stage.state));
        EXPECT_FALSE(mi_compute_irradiance(&color, &stage.state));
        void* handle = &color;
        EXPECT_EQ(mi_lightmap_edit(&handle, miNULLTAG), nullptr);
        EXPECT_EQ(handle, nullptr);
    }
    EXPECT_EQ(messages.texts, (std::vector<std::string>{"mi_store_photon is not supported yet",
                                                        "mi_compute_irradiance is not supported yet",
                                                        "mi_lightmap_edit is not supported yet"}));
    EXPECT_EQ(color.b, 3.0f);
}

} // namespace
