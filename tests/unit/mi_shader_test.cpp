// Declarations, shader instances, parameter blocks, connections, chains and phenomena. The offsets come from
// C structures that the compiler lays out.
#include "mi_test_support.h"

#include <cstring>

namespace stage {
namespace {

class MiShader : public SceneFixture {
protected:
    // What a parameter is connected to, by the table that lies behind the block; null when it is not.
    const Connection* connection(const Element& shader, std::size_t offset) {
        const auto* function = shader.as<miFunction>();
        const char* address = reinterpret_cast<const char*>(function->parameters) + offset;
        const int entry = mi_connection_entry(function, address);
        return entry > 0 ? &shader.shader->connections[static_cast<std::size_t>(entry) - 1] : nullptr;
    }
    std::string text(miTag tag) { return static_cast<const char*>(scene.database.find(tag)->record); }
};

struct Tint {
    miColor in;
    miScalar k;
    miTag next;
};

struct Many {
    int i_a, n_a;
    miScalar a[1];
    struct {
        miColor x;
        miVector y;
    } pair;
    int i_s, n_s;
    struct Item {
        miInteger i;
        miScalar f;
    } s[1];
    miTag t;
    int i_l, n_l;
    miTag l[1];
    miBoolean b;
};

TEST_F(MiShader, BlocksAreLaidOutAsInC) {
    parse_declared("");
    const Declaration& many = *scene.declarations.at("many");
    EXPECT_EQ(many.block_size, sizeof(Many));
    const std::pair<const char*, std::size_t> offsets[] = {
        {"a", offsetof(Many, i_a)}, {"pair", offsetof(Many, pair)}, {"s", offsetof(Many, i_s)},
        {"t", offsetof(Many, t)},   {"l", offsetof(Many, i_l)},     {"b", offsetof(Many, b)}};
    for (const auto& [name, offset] : offsets)
        EXPECT_EQ(many.find(name)->offset, offset) << name;
    EXPECT_EQ(scene.declarations.at("tint")->block_size, sizeof(Tint));
    EXPECT_EQ(scene.declarations.at("bundle")->result.size, sizeof(miColor) + sizeof(miScalar));
    EXPECT_EQ(record<miFunction_decl>(many.tag).result_type, miTYPE_COLOR); // when nothing is said
}

TEST_F(MiShader, ValuesAndDefaults) {
    parse_declared(
        "shader \"s\" \"tint\" ( \"k\" 2.5 ) shader \"t\" \"tint\" ( \"in\" 1 2 3 4, \"next\" \"s\", )");
    EXPECT_EQ(parameter<miColor>(element("s"), offsetof(Tint, in)).g, 1.0f);
    EXPECT_EQ(parameter<miColor>(element("s"), offsetof(Tint, in)).a, 1.0f);
    EXPECT_EQ(parameter<float>(element("s"), offsetof(Tint, k)), 2.5f);
    EXPECT_EQ(parameter<miColor>(element("t"), offsetof(Tint, in)).a, 4.0f);
    EXPECT_EQ(parameter<miTag>(element("t"), offsetof(Tint, next)), element("s").tag);
    EXPECT_EQ(record<miFunction>("s").connection_offset, 0);
    EXPECT_EQ(record<miFunction>("s").function_decl, scene.declarations.at("tint")->tag);
}

TEST_F(MiShader, ElementsAreFoundAsShadersLookForThem) {
    parse("declare shader \"lamp\" () end declare light \"key\" \"lamp\" () origin 0 1 0 end light "
          "light \"fill\" \"lamp\" () origin 0 2 0 end light\n");
    parse_declared(
        "shader \"s\" \"many\" ( \"s\" [ { 1, 1.5 }, { \"f\" 2.5 }, { 3, 3.5 } ], \"a\" [ 7, 8 ], "
        "\"pair\" { 1 2 3, 4 5 6 }, \"t\" \"hello \\\"you\\\"\", \"l\" [ \"key\", \"fill\" ], \"b\" on )");
    const auto* many = reinterpret_cast<const Many*>(record<miFunction>("s").parameters);
    const auto* bytes = reinterpret_cast<const char*>(record<miFunction>("s").parameters);
    ASSERT_EQ(many->n_s, 3);
    for (int k = 0; k < 3; ++k) {
        Many::Item item; // s[i_s + k], by address
        std::memcpy(&item,
                    bytes + offsetof(Many, s) + sizeof(Many::Item) * static_cast<std::size_t>(many->i_s + k),
                    sizeof item);
        EXPECT_EQ(item.i, k == 1 ? 0 : k + 1);
        EXPECT_EQ(item.f, static_cast<float>(k) + 1.5f);
    }
    ASSERT_EQ(many->n_a, 2);
    float second;
    std::memcpy(&second, bytes + offsetof(Many, a) + sizeof(float) * static_cast<std::size_t>(many->i_a + 1),
                4);
    EXPECT_EQ(second, 8.0f);
    miTag fill;
    std::memcpy(&fill, bytes + offsetof(Many, l) + sizeof(miTag) * static_cast<std::size_t>(many->i_l + 1),
                4);
    EXPECT_EQ(fill, element("fill").tag);
    EXPECT_EQ(many->pair.y.z, 6.0f);
    EXPECT_EQ(text(many->t), "hello \"you\"");
    EXPECT_EQ(many->b, miTRUE);
    EXPECT_GE(record<miFunction>("s").parameter_size,
              sizeof(Many) + 3 * sizeof(Many::Item) + 4 * sizeof(float));
}

TEST_F(MiShader, ConnectionsOfEveryKind) {
    parse_declared(
        "shader \"b\" \"bundle\" ( \"i\" 5 ) shader \"n\" \"number\" () shader \"c.d\" \"tint\" ()\n"
        "shader \"t\" \"tint\" ( \"in\" = \"b.c\", \"k\" = \"b.s\" )\n"
        "shader \"m\" \"many\" ( \"a\" [ 1, = \"n\", 3 ], \"pair\" { = \"c.d\", 0 0 0 }, "
        "\"s\" [ { 1, = \"b.s\" } ] )\nshader \"u\" \"tint\" ( \"in\" = \"tint\" ( \"k\" 9 ) )");
    const Element &t = element("t"), &m = element("m");
    ASSERT_NE(connection(t, offsetof(Tint, in)), nullptr);
    EXPECT_EQ(connection(t, offsetof(Tint, in))->shader, element("b").tag);
    EXPECT_EQ(connection(t, offsetof(Tint, in))->source_offset, 0u);
    EXPECT_EQ(connection(t, offsetof(Tint, in))->size, sizeof(miColor));
    EXPECT_EQ(connection(t, offsetof(Tint, k))->source_offset, sizeof(miColor));
    EXPECT_EQ(connection(t, offsetof(Tint, next)), nullptr);

    const auto* many = reinterpret_cast<const Many*>(m.as<miFunction>()->parameters);
    const std::size_t first = offsetof(Many, a) + sizeof(float) * static_cast<std::size_t>(many->i_a);
    EXPECT_EQ(connection(m, first), nullptr);
    ASSERT_NE(connection(m, first + sizeof(float)), nullptr);
    EXPECT_EQ(connection(m, first + sizeof(float))->shader, element("n").tag);
    EXPECT_EQ(connection(m, first + 2 * sizeof(float)), nullptr);
    EXPECT_EQ(connection(m, offsetof(Many, pair))->shader, element("c.d").tag);
    const std::size_t item = offsetof(Many, s) + sizeof(Many::Item) * static_cast<std::size_t>(many->i_s);
    EXPECT_EQ(connection(m, item + offsetof(Many::Item, f))->shader, element("b").tag);
    const Element* inner = scene.database.find(connection(element("u"), 0)->shader);
    EXPECT_EQ(parameter<float>(*inner, offsetof(Tint, k)), 9.0f);
}

TEST_F(MiShader, DefaultsOfArraysAndStructs) {
    parse("declare shader \"many\" ( array color \"c\" default [ 1 2 3, 4 5 6 ], struct \"p\" { scalar \"a\" "
          "7, "
          "string \"b\" \"text\" }, vector \"v\" 1 2 3 ) version 2 apply material, texture end declare\n"
          "shader \"x\" \"many\" ()");
    const Element& x = element("x");
    EXPECT_EQ(parameter<int>(x, 4), 2);
    const auto last = 8 + sizeof(miColor) * static_cast<std::size_t>(parameter<int>(x, 0) + 1);
    EXPECT_EQ(parameter<miColor>(x, last).b, 6.0f);
    EXPECT_EQ(parameter<float>(x, 24), 7.0f);
    EXPECT_EQ(text(parameter<miTag>(x, 28)), "text");
    EXPECT_EQ(parameter<miVector>(x, 32).z, 3.0f);
    const Declaration& many = *scene.declarations.at("many");
    EXPECT_EQ(many.version, 2);
    EXPECT_EQ(many.apply, 1u << miSHADER_MATERIAL | 1u << miSHADER_TEXTURE);
}

TEST_F(MiShader, IncrementalKeepsWhatIsNotSaid) {
    parse_declared(
        "shader \"n\" \"number\" () shader \"s\" \"many\" ( \"a\" [ 1, = \"n\" ], \"t\" \"old\" )");
    const miTag tag = element("s").tag;
    parse("incremental shader \"s\" ( \"b\" on, \"pair\" { \"y\" 1 2 3 } )");
    const Element& s = element("s");
    EXPECT_EQ(s.tag, tag);
    const auto* many = reinterpret_cast<const Many*>(s.as<miFunction>()->parameters);
    EXPECT_EQ(many->n_a, 2);
    const std::size_t first = offsetof(Many, a) + sizeof(float) * static_cast<std::size_t>(many->i_a);
    EXPECT_EQ(parameter<float>(s, first), 1.0f);
    ASSERT_NE(connection(s, first + sizeof(float)), nullptr);
    EXPECT_EQ(text(many->t), "old");
    EXPECT_EQ(many->pair.y.y, 2.0f);
    EXPECT_EQ(many->b, miTRUE);
    parse("incremental shader \"s\" \"many\" ( \"a\" [ 4 ] )"); // a value takes the place of a connection
    EXPECT_EQ(parameter<int>(s, offsetof(Many, n_a)), 1);
    EXPECT_TRUE(s.shader->connections.empty());
}

TEST_F(MiShader, ChainsOfShaders) {
    parse_declared("shader \"a\" \"tint\" () shader \"b\" \"tint\" ()\n"
                   "camera \"c\" lens \"a\" \"tint\" ( \"k\" 1 ) \"b\" focal 50 end camera");
    const miTag first = record<miCamera>("c").lens;
    EXPECT_EQ(first, element("a").tag);
    const miTag second = record<miFunction>(first).next_function;
    EXPECT_EQ(parameter<float>(*scene.database.find(second), offsetof(Tint, k)), 1.0f);
    EXPECT_EQ(record<miFunction>(second).next_function, element("b").tag);
    EXPECT_EQ(record<miFunction>("b").next_function, miNULLTAG);
    parse("incremental camera \"c\" lens \"b\" end camera");
    EXPECT_EQ(record<miCamera>("c").lens, element("b").tag);
    const std::string clash =
        "shader \"x\" \"tint\" () camera \"d\" lens \"x\" \"b\" end camera camera \"e\" lens \"x\"";
    EXPECT_NE(mistake(clash + " end camera").find("in another list already"), std::string::npos);
}

constexpr const char* phenomenon =
    "declare phenomenon color \"mix\" ( color \"base\" default 1 2 3, scalar \"k\", array scalar \"list\" )\n"
    "  shader \"inner\" \"tint\" ( \"in\" = interface \"base\", \"k\" = interface \"k\" )\n"
    "  shader \"table\" \"many\" ( \"a\" = interface \"list\" )\n"
    "  root \"tint\" ( \"in\" = \"inner\", \"next\" \"table\" )\n"
    "  lens \"tint\" ()\nend declare\n";

TEST_F(MiShader, PhenomenaAreBuiltForEachInstance) {
    parse_declared(
        std::string(phenomenon) +
        "shader \"n\" \"number\" ()\n"
        "shader \"p\" \"mix\" ( \"k\" 4, \"list\" [ 5, = \"n\" ] ) shader \"q\" \"mix\" ( \"k\" = \"n\" )");
    const ShaderInstance &p = *element("p").shader, &q = *element("q").shader;
    EXPECT_EQ(record<miFunction>("p").type, miFUNCTION_PHEN);
    ASSERT_NE(p.root, miNULLTAG);
    EXPECT_NE(p.root, q.root);
    EXPECT_NE(p.lens, miNULLTAG);
    EXPECT_EQ(p.volume, miNULLTAG);
    EXPECT_EQ(record<miFunction>(p.root).interfacephen, element("p").tag);

    const Element& inner = *scene.database.find(connection(*scene.database.find(p.root), 0)->shader);
    EXPECT_EQ(inner.name, "p/inner");
    EXPECT_EQ(scene.database.find(std::string_view("inner")), nullptr);
    EXPECT_EQ(parameter<miColor>(inner, 0).b, 3.0f); // literal values of the interface are copied
    EXPECT_EQ(parameter<float>(inner, offsetof(Tint, k)), 4.0f);
    const Element& inner_q = *scene.database.find(connection(*scene.database.find(q.root), 0)->shader);
    ASSERT_NE(connection(inner_q, offsetof(Tint, k)), nullptr); // connections are connections
    EXPECT_EQ(connection(inner_q, offsetof(Tint, k))->shader, element("n").tag);

    const Element& table =
        *scene.database.find(parameter<miTag>(*scene.database.find(p.root), offsetof(Tint, next)));
    const auto* many = reinterpret_cast<const Many*>(table.as<miFunction>()->parameters);
    ASSERT_EQ(many->n_a, 2);
    const std::size_t first = offsetof(Many, a) + sizeof(float) * static_cast<std::size_t>(many->i_a);
    EXPECT_EQ(parameter<float>(table, first), 5.0f);
    EXPECT_EQ(connection(table, first + sizeof(float))->shader, element("n").tag);
}

TEST_F(MiShader, AnEditBuildsThePhenomenonAnew) {
    parse_declared(std::string(phenomenon) + "shader \"p\" \"mix\" ( \"k\" 4 )");
    const miTag tag = element("p").tag;
    parse("incremental shader \"p\" ( \"k\" 6 )");
    EXPECT_EQ(element("p").tag, tag);
    const Element& root = *scene.database.find(element("p").shader->root);
    const Element& inner = *scene.database.find(connection(root, 0)->shader);
    EXPECT_EQ(parameter<float>(inner, offsetof(Tint, k)), 6.0f);
}

TEST_F(MiShader, PhenomenonInPhenomenonAndMaterial) {
    parse_declared(
        std::string(phenomenon) +
        "declare phenomenon material \"coat\" ( scalar \"k\" )\n"
        "  shader \"m\" \"mix\" ( \"k\" = interface \"k\" )\n"
        "  material \"mat\" opaque \"tint\" ( \"in\" = \"m\" ) end material\n root material \"mat\" end "
        "declare\n"
        "material \"red\" = \"coat\" ( \"k\" 8 ) end material\nshader \"blue\" \"coat\" ( \"k\" 9 )\n"
        "object \"o\" group 0 0 0 v 0 c \"blue\" 0 0 0 end group end object");
    EXPECT_TRUE(record<miMaterial>("red").opaque);
    const Element& shader = *scene.database.find(record<miMaterial>("red").shader);
    const Element& mix = *scene.database.find(connection(shader, 0)->shader);
    const Element& inner =
        *scene.database.find(connection(*scene.database.find(mix.shader->root), 0)->shader);
    EXPECT_EQ(parameter<float>(inner, offsetof(Tint, k)), 8.0f);
    EXPECT_EQ(record<miObject>("o").triangles->material, element("blue").shader->root);
}

TEST_F(MiShader, MaterialShadersShareParameters) {
    parse_declared(
        "material \"m\" \"tint\" ( \"k\" 3 ) shadow \"tint\" ( ) photon \"tint\" ( \"k\" 1 ) end material");
    const auto& m = record<miMaterial>("m");
    EXPECT_EQ(parameter<float>(*scene.database.find(m.shadow), offsetof(Tint, k)), 3.0f);
    EXPECT_EQ(record<miFunction>(m.shadow).parameter_indirect, m.shader);
    EXPECT_EQ(parameter<float>(*scene.database.find(m.photon), offsetof(Tint, k)), 1.0f);
    EXPECT_EQ(record<miFunction>(m.photon).parameter_indirect, miNULLTAG);
}

TEST_F(MiShader, NamespacesHideNames) {
    parse_declared(
        "shader \"s\" \"tint\" ( \"k\" 1 ) namespace \"a\" shader \"s\" \"tint\" ( \"k\" 2 )\n"
        "shader \"use\" \"tint\" ( \"next\" \"s\" ) shader \"global\" \"tint\" ( \"next\" \"::s\" )\n"
        "end namespace shader \"out\" \"tint\" ( \"next\" \"a::s\" ) delete \"s\" shader \"s\" \"tint\" ()");
    EXPECT_EQ(parameter<miTag>(element("a::use"), offsetof(Tint, next)), element("a::s").tag);
    EXPECT_NE(parameter<miTag>(element("a::global"), offsetof(Tint, next)), element("a::s").tag);
    EXPECT_EQ(parameter<miTag>(element("out"), offsetof(Tint, next)), element("a::s").tag);
    EXPECT_EQ(parameter<float>(element("s"), offsetof(Tint, k)), 0.0f);
}

TEST_F(MiShader, AWrongUseIsOnlyAWarning) {
    parse("declare shader \"tint\" () apply texture, light end declare material \"m\" \"tint\" () end "
          "material");
    ASSERT_EQ(scene.warnings.size(), 1u);
    EXPECT_EQ(scene.warnings[0], "test.mi:1:72: the shader \"tint\" is not declared to be applied here");
}

} // namespace
} // namespace stage
