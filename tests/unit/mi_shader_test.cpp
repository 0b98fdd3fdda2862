// Declarations, shader instances, parameter blocks, connections, chains and phenomena. The offsets come from
// C structures that the compiler lays out.
#include "mi_test_support.h"

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
    // The shader that feeds the root of a phenomenon's instance.
    template <class Key> const Element& inner_of(const Key& phenomenon) {
        return element(connection(element(element(phenomenon).shader->root), 0)->shader);
    }
    // The offset of an array's element k behind that of its first, from where the array's index is kept.
    template <class T> static std::size_t item(const Element& shader, std::size_t index, int k) {
        return sizeof(T) * static_cast<std::size_t>(parameter<int>(shader, index) + k);
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

TEST_F(MiShader, ValuesDefaultsAndArrays) {
    parse_declared(
        "light \"key\" \"tint\" () origin 0 1 0 end light light \"fill\" \"tint\" () origin 0 2 0 end light\n"
        "shader \"d\" \"tint\" ( \"k\" 2.5 ) shader \"t\" \"tint\" ( \"in\" 1 2 3 4, \"next\" \"d\", )\n"
        "shader \"s\" \"many\" ( \"a\" [ 7, 8 ], \"pair\" { 1 2 3, 4 5 6 }, \"s\" [ { 1, 1.5 }, { \"f\" 2.5 "
        "}, "
        "{ 3, 3.5 } ], \"t\" \"hello \\\"you\\\"\", \"l\" [ \"key\", \"fill\" ], \"b\" on )");
    const Element &d = element("d"), &t = element("t"), &s = element("s");
    EXPECT_EQ(parameter<miColor>(d, offsetof(Tint, in)).a, 1.0f);
    EXPECT_EQ(parameter<float>(d, offsetof(Tint, k)), 2.5f);
    EXPECT_EQ(parameter<miColor>(t, offsetof(Tint, in)).a, 4.0f);
    EXPECT_EQ(parameter<miTag>(t, offsetof(Tint, next)), d.tag);
    ASSERT_EQ(parameter<int>(s, offsetof(Many, n_s)), 3);
    for (int k = 0; k < 3; ++k) {
        const auto at =
            parameter<Many::Item>(s, offsetof(Many, s) + item<Many::Item>(s, offsetof(Many, i_s), k));
        EXPECT_EQ(at.i, k == 1 ? 0 : k + 1);
        EXPECT_EQ(at.f, static_cast<float>(k) + 1.5f);
    }
    EXPECT_EQ(parameter<float>(s, offsetof(Many, a) + item<float>(s, offsetof(Many, i_a), 1)), 8.0f);
    EXPECT_EQ(parameter<miTag>(s, offsetof(Many, l) + item<miTag>(s, offsetof(Many, i_l), 1)),
              element("fill").tag);
    EXPECT_EQ(parameter<float>(s, offsetof(Many, pair.y.z)), 6.0f);
    EXPECT_EQ(text(parameter<miTag>(s, offsetof(Many, t))), R"(hello "you")");
    EXPECT_EQ(parameter<miBoolean>(s, offsetof(Many, b)), miTRUE);
    EXPECT_GE(s.as<miFunction>()->parameter_size, sizeof(Many) + 3 * sizeof(Many::Item) + 4 * sizeof(float));
}

TEST_F(MiShader, ConnectionsOfEveryKind) {
    parse_declared(
        R"(shader "b" "bundle" ( "i" 5 ) shader "n" "number" () shader "c.d" "tint" ()
shader "t" "tint" ( "in" = "b.c", "k" = "b.s" )
shader "m" "many" ( "a" [ 1, = "n", 3 ], "pair" { = "c.d", 0 0 0 }, "s" [ { 1, = "b.s" } ] )
shader "u" "tint" ( "in" = "tint" ( "k" 9 ), "next" = "n" ))");
    const Element &t = element("t"), &m = element("m"), &u = element("u");
    const std::size_t a = offsetof(Many, a) + item<float>(m, offsetof(Many, i_a), 0);
    const std::size_t s = offsetof(Many, s) + item<Many::Item>(m, offsetof(Many, i_s), 0);
    const struct {
        const Element& to;
        std::size_t offset;
        const char* from; // null: not connected
        std::size_t source_offset, size;
    } cases[] = {
        {t, offsetof(Tint, in), "b", 0, sizeof(miColor)},
        {t, offsetof(Tint, k), "b", sizeof(miColor), sizeof(miScalar)},
        {t, offsetof(Tint, next), nullptr, 0, 0},
        {m, a, nullptr, 0, 0},
        {m, a + sizeof(float), "n", 0, sizeof(float)},
        {m, a + 2 * sizeof(float), nullptr, 0, 0},
        {m, offsetof(Many, pair), "c.d", 0, sizeof(miColor)},
        {m, s + offsetof(Many::Item, f), "b", sizeof(miColor), sizeof(float)},
    };
    for (const auto& test : cases) {
        const Connection* found = connection(test.to, test.offset);
        ASSERT_EQ(found != nullptr, test.from != nullptr) << test.offset;
        if (found) {
            EXPECT_EQ(element(found->shader).name, test.from);
            EXPECT_EQ(found->source_offset, test.source_offset);
            EXPECT_EQ(found->size, test.size);
        }
    }
    EXPECT_EQ(parameter<float>(element(connection(u, 0)->shader), offsetof(Tint, k)), 9.0f);
    // Where a shader is the value, = gives the shader itself.
    EXPECT_EQ(connection(u, offsetof(Tint, next)), nullptr);
    EXPECT_EQ(parameter<miTag>(u, offsetof(Tint, next)), element("n").tag);
}

constexpr const char* phenomenon =
    R"(declare phenomenon color "mix" ( color "base" default 1 2 3, scalar "k", array scalar "list" )
  shader "inner" "tint" ( "in" = interface "base", "k" = interface "k" )
  shader "table" "many" ( "a" = interface "list" )
  root "tint" ( "in" = "inner", "next" "table" )
  lens "tint" ()
end declare
)";

TEST_F(MiShader, PhenomenaAreBuiltForEachInstance) {
    parse_declared(std::string(phenomenon) +
                   R"(shader "n" "number" ()
shader "p" "mix" ( "k" 4, "list" [ 5, = "n" ] ) shader "q" "mix" ( "k" = "n" ))");
    const ShaderInstance &p = *element("p").shader, &q = *element("q").shader;
    EXPECT_EQ(record<miFunction>("p").type, miFUNCTION_PHEN);
    EXPECT_NE(p.root, q.root);
    EXPECT_NE(p.lens, miNULLTAG);
    EXPECT_EQ(p.volume, miNULLTAG);
    EXPECT_EQ(record<miFunction>(p.root).interfacephen, element("p").tag);

    const Element &inner = inner_of("p"), &inner_q = inner_of("q");
    EXPECT_EQ(inner.name, "p/inner");
    EXPECT_EQ(parameter<miColor>(inner, 0).b, 3.0f); // literal values of the interface are copied
    EXPECT_EQ(parameter<float>(inner, offsetof(Tint, k)), 4.0f);
    ASSERT_NE(connection(inner_q, offsetof(Tint, k)), nullptr); // connections are connections
    EXPECT_EQ(connection(inner_q, offsetof(Tint, k))->shader, element("n").tag);

    const Element& table = element(parameter<miTag>(element(p.root), offsetof(Tint, next)));
    ASSERT_EQ(parameter<int>(table, offsetof(Many, n_a)), 2);
    const std::size_t a = offsetof(Many, a) + item<float>(table, offsetof(Many, i_a), 0);
    EXPECT_EQ(parameter<float>(table, a), 5.0f);
    EXPECT_EQ(connection(table, a + sizeof(float))->shader, element("n").tag);

    const miTag tag = element("p").tag; // an edit builds it anew
    parse(R"(incremental shader "p" ( "k" 6 ))");
    EXPECT_EQ(element("p").tag, tag);
    EXPECT_EQ(parameter<float>(inner_of("p"), offsetof(Tint, k)), 6.0f);
}

TEST_F(MiShader, PhenomenonInPhenomenonAndMaterial) {
    parse_declared(
        std::string(phenomenon) +
        R"(declare phenomenon material "coat" ( scalar "k" ) shader "m" "mix" ( "k" = interface "k" )
  material "mat" opaque "tint" ( "in" = "m" ) end material
 root material "mat" end declare
material "red" = "coat" ( "k" 8 ) end material
shader "blue" "coat" ( "k" 9 )
object "o" group 0 0 0 v 0 c "blue" 0 0 0 end group end object
material "m" "tint" ( "k" 3 ) shadow "tint" ( ) photon "tint" ( "k" 1 ) end material)");
    EXPECT_TRUE(record<miMaterial>("red").opaque);
    const Element& mix = element(connection(element(record<miMaterial>("red").shader), 0)->shader);
    EXPECT_EQ(parameter<float>(inner_of(mix.tag), offsetof(Tint, k)), 8.0f);
    EXPECT_EQ(record<miObject>("o").triangles->material, element("blue").shader->root);
    const auto& m =
        record<miMaterial>("m"); // an empty list of parameters shares those of the material shader
    EXPECT_EQ(parameter<float>(element(m.shadow), offsetof(Tint, k)), 3.0f);
    EXPECT_EQ(record<miFunction>(m.shadow).parameter_indirect, m.shader);
    EXPECT_EQ(parameter<float>(element(m.photon), offsetof(Tint, k)), 1.0f);
    EXPECT_EQ(record<miFunction>(m.photon).parameter_indirect, miNULLTAG);
}

} // namespace
} // namespace stage
