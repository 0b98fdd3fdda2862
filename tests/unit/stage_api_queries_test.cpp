// Queries, the database and names.
#include <string>
#include <vector>

#include "kit/memory.h"
#include "stage_api_scene.h"

namespace {

using namespace stage_test;

// A value's bytes, to compare answers of any type.
template <class Value> std::string bytes(const Value& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

struct Row {
    miQ_type code;
    miTag tag;
    std::string answer;
};

bool unanswered(Stage& stage, miQ_type code, miTag tag) {
    // Every query finds room for a result and pointers where it expects further arguments.
    std::array<char, 64> untouched{}, first{}, second{};
    return mi_query(code, &stage.state, tag, untouched.data(), first.data(), second.data()) == miFALSE &&
           untouched == std::array<char, 64>{};
}

TEST(Queries, AnswerWithWhatTheSceneHolds) {
    Stage stage;
    stage.parse(
        R"(declare data "dd" ( integer "i" ) end declare data "d2" "dd" () data "d1" tag 43 1 'ff'
incremental object "square" data "d2" end object
shader "next" "tint" () shader "fn" "tint" ( "a" 2.5, "b" 1 2 3 4, "c" [ 9 ] ))");
    const miTag inst = stage.tag("square_inst"), object = stage.tag("square"), group = stage.tag("world"),
                lamp = stage.tag("lamp"), fn = stage.tag("fn"),
                decl = stage.scene.declarations.at("tint")->tag;
    auto* instance = stage["square_inst"].as<miInstance>();
    auto* function = stage["fn"].as<miFunction>();
    auto* data = stage["d1"].as<miUserdata>();
    stage::Element& e = stage.scene.database.add(miSCENE_MATERIAL, "all", {}, sizeof(miMaterial));
    *e.as<miMaterial>() = {miTRUE, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40};
    function->next_function = stage.tag("next");
    instance->parent = 22;
    instance->userdata = 23;
    stage.state.shader = function;
    function->reserved[0] = &stage["fn"]; // as the first call leaves it
    // Of each kind of element: a plain member, an address, what goes by way of another element.
    std::vector<Row> rows = {
        {miQ_INST_ITEM, inst, bytes(object)},
        {miQ_INST_PARENT, inst, bytes(miTag{22})},
        {miQ_INST_MATERIAL, inst, bytes(stage.tag("m"))},
        {miQ_INST_DATA, inst, bytes(miTag{23})},
        {miQ_INST_LABEL, inst, bytes(miUint{77})},
        {miQ_INST_NAME, inst, bytes(stage["square_inst"].name.c_str())},
        {miQ_INST_GLOBAL_TO_LOCAL, inst, bytes(&instance->tf.global_to_local)},
        {miQ_GROUP_NKIDS, group, bytes(3)},
        {miQ_NUM_GLOBAL_LIGHTS, miNULLTAG, bytes(1)},
        {miQ_DATA_DECL, stage.tag("d2"), bytes(stage.scene.declarations.at("data dd")->tag)},
        {miQ_DATA_PARAM_SIZE, stage.tag("d1"), bytes(1)},
        {miQ_DATA_PARAM, stage.tag("d1"), bytes(&data->parameters)},
        {miQ_OBJ_DATA, object, bytes(stage.tag("d2"))},
        {miQ_OBJ_DATA, miNULLTAG, bytes(stage.tag("d2"))}, // of what was hit
        {miQ_OBJ_TYPE, object, bytes(int{miOBJECT_POLYGONS})},
        {miQ_NUM_TEXTURES, miNULLTAG, bytes(2)},
        {miQ_SAMPLE_MOVING, miNULLTAG, bytes(0)},
        {miQ_DECL_NAME, decl, bytes(stage.scene.declarations.at("tint")->name.c_str())},
        {miQ_LIGHT_AREA, lamp, bytes(int{miLIGHT_DISC})},
        {miQ_LIGHT_TYPE, stage.tag("lamp_inst"), bytes(int{miLIGHT_SPOT})},
        {miQ_LIGHT_ORIGIN, stage.tag("lamp_inst"), bytes(miVector{7, 8, 9})},
        {miQ_LIGHT_SPREAD, lamp, bytes(0.75f)},
        {miQ_LIGHT_ENERGY, lamp, bytes(stage["lamp"].as<miLight>()->energy)},
        {miQ_FUNC_NEXT, fn, bytes(stage.tag("next"))},
        {miQ_FUNC_PARAM, fn, bytes(&function->parameters)},
        {miQ_FUNC_PARAM_SIZE, fn, bytes(function->parameter_size)},
        {miQ_DECL_LOCK, fn, bytes(&stage["fn"].shader->code->lock)},
        {miQ_DECL_TYPE, fn, bytes(int{miTYPE_COLOR})},
        {miQ_DECL_RESULT_SIZE, fn, bytes(4)},
        {miQ_DECL_VERSION, fn, bytes(7)},
    };
    miTag slot = 31;
    for (const miQ_type code :
         {miQ_MTL_SHADER, miQ_MTL_DISPLACE, miQ_MTL_SHADOW, miQ_MTL_VOLUME, miQ_MTL_ENVIRONMENT,
          miQ_MTL_CONTOUR, miQ_MTL_PHOTON, miQ_MTL_PHOTONVOL, miQ_MTL_LIGHTMAP})
        rows.push_back({code, e.tag, bytes(slot++)});
    for (const miTag tag : {fn, miTag{miNULLTAG}}) // by tag, and as the one that runs
        rows.insert(rows.end(), {{miQ_FUNC_TAG, tag, bytes(fn)},
                                 {miQ_FUNC_DECL, tag, bytes(decl)},
                                 {miQ_FUNC_NAME, tag, bytes(stage["fn"].name.c_str())},
                                 {miQ_FUNC_USERPTR, tag, bytes(&stage["fn"].shader->user)}});
    for (const Row& row : rows) {
        std::string got(row.answer.size() + 8, 'x');
        EXPECT_TRUE(mi_query(row.code, &stage.state, row.tag, got.data())) << row.code;
        EXPECT_EQ(got, row.answer + "xxxxxxxx") << "query " << row.code << " of " << row.tag;
    }
    const char* text = nullptr;
    EXPECT_TRUE(mi_query(miQ_DECL_PARAM, &stage.state, fn, &text));
    EXPECT_STREQ(text, "scalar \"a\", color \"b\", array integer \"c\"");
    stage.state.shader = nullptr;
    for (const auto& [code, tag] : {std::pair{miQ_INST_ITEM, object},
                                    {miQ_GROUP_NKIDS, inst},
                                    {miQ_LIGHT_TYPE, inst},
                                    {miQ_DECL_VERSION, object},
                                    {miQ_FUNC_USERPTR, miTag{miNULLTAG}},
                                    {miQ_GROUP_NKIDS, miTag{999999}},
                                    {miQ_SAMPLE_OVERRIDE, miTag{miNULLTAG}}})
        EXPECT_TRUE(unanswered(stage, code, tag)) << code << " of another kind of element";
    for (const int code : {0, 1, 9, 80, 162, 255}) // as a shader of a later interface might ask
        EXPECT_TRUE(unanswered(stage, static_cast<miQ_type>(code), inst)) << code;
    Stage moving(false, true);
    int moves = 0;
    EXPECT_TRUE(mi_query(miQ_SAMPLE_MOVING, &moving.state, miNULLTAG, &moves) && moves);
}

TEST(Queries, WithFurtherArguments) {
    Stage stage;
    stage.parse("shader \"fn\" \"tint\" ( \"b\" 1 2 3 4 )");
    const auto ask = [&](miQ_type code, miTag tag, auto... arguments) {
        return mi_query(code, &stage.state, tag, arguments...) != miFALSE;
    };
    miTag kid = 0;
    EXPECT_TRUE(ask(miQ_GROUP_KID, stage.tag("world"), &kid, 2));
    EXPECT_EQ(kid, stage.tag("square_inst"));
    EXPECT_FALSE(ask(miQ_GROUP_KID, stage.tag("world"), &kid, 3));
    EXPECT_FALSE(ask(miQ_GROUP_KID, stage.tag("world"), &kid, -1));
    const miTag fn = stage.tag("fn");
    miColor b{};
    EXPECT_TRUE(ask(miQ_FUNC_PARAM_VALUE, fn, &b, "b", miTYPE_COLOR));
    EXPECT_EQ(b.g, 2.0f);
    EXPECT_FALSE(ask(miQ_FUNC_PARAM_VALUE, fn, &b, "b", miTYPE_SCALAR));
    EXPECT_FALSE(ask(miQ_FUNC_PARAM_VALUE, fn, &b, "z", miTYPE_COLOR));
    const int* indices = nullptr;
    const miUint* words = nullptr;
    int slots = 0;
    ASSERT_TRUE(ask(miQ_PRI_DATA, miNULLTAG, &slots, &indices, &words));
    EXPECT_EQ((std::vector<miUint>{words[indices[0]], words[indices[1]]}), (std::vector<miUint>{21, 22}));

    auto* function = stage["fn"].as<miFunction>();
    function->reserved[0] = &stage["fn"]; // as the first call leaves it
    stage.state.shader = function;
    stage["fn"].shader->thread_user.resize(2); // pointers of threads are kept apart
    void* pointers[2] = {&kid, &b};
    for (short k = 0; k < 2; ++k) {
        stage.state.thread = k;
        void* found = &slots;
        EXPECT_TRUE(ask(miQ_FUNC_TLS_GET, miNULLTAG, &found));
        EXPECT_EQ(found, nullptr);
        EXPECT_TRUE(ask(miQ_FUNC_TLS_SET, miNULLTAG, &pointers[k]));
    }
    void** all = nullptr;
    ASSERT_TRUE(ask(miQ_FUNC_TLS_GETALL, miNULLTAG, &all, &slots));
    EXPECT_EQ(std::vector<void*>(all, all + slots), (std::vector<void*>{pointers[0], pointers[1]}));
}

TEST(Database, AccessByTagAndName) {
    Stage stage;
    stage::Element& object = stage["square"];
    int type = 0;
    EXPECT_EQ(mi_db_access_type(object.tag, &type), object.record);
    EXPECT_EQ(type, miSCENE_OBJECT);
    EXPECT_EQ(object.pins.load(), 1);
    mi_db_unpin(object.tag);
    EXPECT_EQ(mi_db_type(999999), 0);
    EXPECT_EQ(mi_db_size(object.tag), static_cast<int>(sizeof(miObject)));
    const Told told;
    mi_db_unpin(object.tag);
    EXPECT_THAT(told.text, testing::MatchesRegex("[^\n]*\"square\"[^\n]*\n"));
    EXPECT_EQ(object.pins.load(), 0);
    const long long before = stage::memory_counts().live_blocks; // the lookup releases the string
    EXPECT_EQ(mi_api_name_lookup(mi_mem_strdup("square")), object.tag);
    EXPECT_EQ(mi_api_name_lookup(mi_mem_strdup("no such thing")), miNULLTAG);
    EXPECT_EQ(stage::memory_counts().live_blocks, before);
}

} // namespace
