// The built module's results, number for number: every shader in the same small scene, with parameters and
// states by a fixed sequence, against the file that the module for Linux wrote (`results_test --write FILE`).
// The file is no proof that a result is right: it is how Windows and Linux, one compiler and the next, are
// shown to agree. What is computed with + - * / and square roots alone must have the same bits; where the
// run-time library's transcendental functions come in, 4 units in the last place of the largest component.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "built_module.h"
#include "exports.h"
#include "orl_attenuv.h"
#include "output_request.h"
#include "utl_curve.h"

namespace {

using orl::decl::Field;
using orl::decl::Shader;
using scripted::Renderer;
using scripted::World;

// Case 0 has the defaults, the others what a linear congruential sequence chooses within the ranges.
class FixedValues : public scripted::Values {
public:
    FixedValues(const std::string& shader, int number) : number_(number) {
        for (const char c : shader)
            state_ = state_ * 31u + static_cast<unsigned char>(c);
        state_ += static_cast<std::uint32_t>(number) * 7919u;
    }

    int below(int count) override { return static_cast<int>(next() % static_cast<std::uint32_t>(count)); }
    float real(const Field& field, int element, int component) override {
        const bool told = component < field.value.count;
        const float usual = told ? static_cast<float>(field.value.number[component]) : 0.0f;
        const float part = static_cast<float>(next()) / 16777216.0f;
        if (field.type == miTYPE_TRANSFORM)
            return component == 15 ? 1.0f : (component % 5 == 0 ? 0.5f : 0.0f) + 0.25f * part;
        if (std::string(field.name) == "x") // the points of a curve stand in order
            return 0.25f * (static_cast<float>(element) + part);
        if (number_ == 0 && told)
            return usual;
        if (field.range.lowest >= 0 && field.range.highest <= 100)
            return static_cast<float>(field.range.lowest) +
                   part * static_cast<float>(field.range.highest - field.range.lowest);
        return usual == 0.0f ? part : usual * (0.5f + part);
    }
    int integer(const Field& field) override {
        const int usual = field.value.count > 0 ? static_cast<int>(field.value.number[0]) : 0;
        if (number_ == 0)
            return usual;
        if (field.type == miTYPE_BOOLEAN) // most switches stand as usual; those of lists are on
            return (next() % 4 != 0) == (field.value.count == 0 || usual != 0);
        const bool narrow = field.range.lowest >= 0 && field.range.highest <= 16;
        return narrow ? static_cast<int>(field.range.lowest) +
                            below(static_cast<int>(field.range.highest - field.range.lowest) + 1)
                      : usual + below(3);
    }
    int elements(const Field& array) override {
        return std::string(array.name).starts_with("map") ? 12 : 4; // a map for each channel of a material
    }
    bool wild() override { return false; }

private:
    std::uint32_t next() { // 24 bits
        state_ = state_ * 1664525u + 1013904223u;
        return state_ >> 8;
    }

    int number_;
    std::uint32_t state_ = 1;
};

// The n-th of what the shader may be applied as, and the ray that goes with it.
void set_kind(scripted::State& state, const Shader& shader, int n) {
    std::vector<miShader_type> kinds;
    for (int kind = 0; kind < miNSHADERTYPES; ++kind)
        if (shader.apply & 1u << kind)
            kinds.push_back(static_cast<miShader_type>(kind));
    const miShader_type kind = kinds.empty() ? miSHADER_TEXTURE : kinds[n % static_cast<int>(kinds.size())];
    state->call_type = kind;
    const std::map<miShader_type, miRay_type> rays = {
        {miSHADER_LIGHT, miRAY_LIGHT},       {miSHADER_SHADOW, miRAY_SHADOW},
        {miSHADER_PHOTON, miPHOTON_LIGHT},   {miSHADER_ENVIRONMENT, miRAY_ENVIRONMENT},
        {miSHADER_DISPLACE, miRAY_DISPLACE}, {miSHADER_LIGHTMAP, miRAY_LM_MESH},
        {miSHADER_OUTPUT, miRAY_OUTPUT},     {miSHADER_PHOTONEMIT, miPHOTON_EMIT_GLOBILLUM}};
    const auto ray = rays.find(kind);
    state->type = ray != rays.end() ? ray->second : n % 2 ? miRAY_REFLECT : miRAY_EYE;
    if (state->type == miRAY_LIGHT) // the cosine to the light, not to the eye
        state->dot_nd = -state->dot_nd;
}

using Words = std::vector<std::uint32_t>;

constexpr int cases = 12, calls = 4;

// Four states of one instance; what the renderer was told counts as well.
Words results_of(const World& world, scripted::Actor& actor, int number, int first, int last) {
    Words words;
    for (int k = first; k < last; ++k) {
        scripted::State state;
        world.place(state, number + k);
        state->thread = static_cast<short>(k);
        state.run(actor.instance);
        set_kind(state, *actor.shader, number);
        orl::CurveRequest request{k % 3, 0, 0.25f + 0.25f * static_cast<float>(k), 0, 1, 0, 1, k % 2};
        if (!std::string(actor.shader->name).ends_with("Curve"))
            request.channel = number % 3; // an OutputRequest, with room
        std::array<miColor, 4> result{};
        result[0] = {0.75f, 0.5f, 0.25f, 0.5f};
        const bool asks = (actor.shader->apply & orl::decl::apply(miSHADER_TEXTURE)) && number % 2;
        words.push_back(
            static_cast<std::uint32_t>(World::call(actor, result.data(), state, asks ? &request : nullptr)));
        const auto take = [&](const void* bytes, std::size_t size) {
            const std::size_t at = words.size();
            words.resize(at + size / 4);
            std::memcpy(&words[at], bytes, size);
        };
        take(result.data(), World::result_size(*actor.shader));
    }
    return words;
}

// How many threads share the calls; each has a state and a number of its own.
Words run(const Shader& shader, bool hosted, int number, int threads) {
    Renderer& renderer = Renderer::get();
    renderer.reset();
    FixedValues values(shader.name, number);
    World world(scripted::entries_of, values);
    scripted::Actor* const actor = hosted ? world.add_host(shader) : &world.add(shader);
    if (actor == nullptr)
        return {};
    world.begin();
    std::vector<Words> parts(static_cast<std::size_t>(threads));
    std::vector<std::thread> crew;
    const int share = calls / threads;
    for (int t = 0; t < threads; ++t) {
        const auto work = [&, t] {
            parts[static_cast<std::size_t>(t)] =
                results_of(world, *actor, number, t * share, (t + 1) * share);
        };
        threads == 1 ? work() : void(crew.emplace_back(work));
    }
    for (std::thread& thread : crew)
        thread.join();
    world.end();
    Words all;
    for (const Words& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

template <class Visitor> void for_each_case(const Visitor& visit) {
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders)
            for (const bool hosted : {false, true})
                for (int number = 0; number < cases; ++number)
                    visit(shader, hosted, number);
}

std::string name_of(const Shader& shader, bool hosted) {
    return shader.name + std::string(hosted ? " in its slot" : "");
}

// Lines: the name, a tab, the number of the case, words in hexadecimal.
using Stored = std::map<std::pair<std::string, int>, Words>;

Stored read(const char* file) {
    std::ifstream in(file);
    Stored stored;
    for (std::string line; std::getline(in, line);) {
        const std::size_t tab = line.find('\t');
        std::istringstream numbers(line.substr(tab + 1));
        int number = 0;
        numbers >> number >> std::hex;
        Words& words = stored[{line.substr(0, tab), number}];
        for (std::uint32_t word; numbers >> word;)
            words.push_back(word);
    }
    return stored;
}

float real(std::uint32_t word) {
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

// How far apart the results of a case are, in units in the last place of a call's largest number, or of
// `least` where that is larger.
double units_apart(const Words& a, const Words& b, double least) {
    const std::size_t call = a.size() / calls;
    double most = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] == b[i])
            continue;
        if (std::max(a[i], b[i]) < 0x10000u) // whole numbers and answers
            return HUGE_VAL;
        double largest = least;
        for (std::size_t k = i / call * call; k < (i / call + 1) * call; ++k)
            largest = std::max(largest, std::fabs(static_cast<double>(real(b[k]))));
        const double difference =
            std::fabs(static_cast<double>(real(a[i])) - static_cast<double>(real(b[i])));
        int exponent = 0;
        std::frexp(largest, &exponent);
        const double units = difference / std::ldexp(1.0, exponent - 24);
        most = units <= HUGE_VAL ? std::max(most, units) : HUGE_VAL;
    }
    return most;
}

// How many units a shader's results may be apart. Angles, powers and exponents come from the run-time
// library; coordinates that wrapped into the unit square keep the error of their full size.
double units_allowed(std::string_view name) {
    constexpr std::string_view arithmetic[] = {"LumeTools",
                                               "orl_NodeVisibility",
                                               "orl_WireColor",
                                               "orl_base_Curve",
                                               "orl_base_CurveControl",
                                               "orl_base_Output",
                                               "orl_empty",
                                               "orl_is_material_editor",
                                               "orl_passthru",
                                               "orl_procedural_dummy",
                                               "orl_rtt_output",
                                               "orl_unknown"};
    return std::find(std::begin(arithmetic), std::end(arithmetic), name) != std::end(arithmetic) ? 0 : 4;
}

TEST(Results, AreThoseOfTheFile) {
    const Stored stored = read(ORL_FILE_RESULTS);
    long long words_seen = 0, equal = 0;
    std::size_t seen = 0;
    for_each_case([&](const Shader& shader, bool hosted, int number) {
        const Words words = run(shader, hosted, number, 1);
        if (words.empty())
            return;
        const std::string name = name_of(shader, hosted);
        const auto expected = stored.find({name, number});
        ASSERT_TRUE(expected != stored.end() && expected->second.size() == words.size())
            << name << ", case " << number << " is not in the file";
        ++seen;
        words_seen += static_cast<long long>(words.size());
        for (std::size_t i = 0; i < words.size(); ++i)
            equal += words[i] == expected->second[i];
        const bool coordinates = name.ends_with("Coordinate") || name.ends_with("Generator");
        const double units = units_apart(words, expected->second, coordinates ? 1.0 : 0.0);
        EXPECT_LE(units, units_allowed(shader.name)) << name << ", case " << number;
        if (units > 0)
            std::printf("%s, case %d: %g units in the last place\n", name.c_str(), number, units);
    });
    EXPECT_EQ(seen, stored.size());
    std::printf("%lld of %lld words have the same bits\n", equal, words_seen);
}

TEST(Results, AreTheSameWithTwoThreads) {
    for_each_case([](const Shader& shader, bool hosted, int number) {
        if (number >= 4) // threads start slowly on some systems
            return;
        EXPECT_EQ(run(shader, hosted, number, 1), run(shader, hosted, number, 2))
            << name_of(shader, hosted) << ", case " << number;
    });
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (argc == 3 && std::string(argv[1]) == "--write") {
        std::ofstream out(argv[2]);
        for_each_case([&](const Shader& shader, bool hosted, int number) {
            const Words words = run(shader, hosted, number, 1);
            if (words.empty())
                return;
            out << name_of(shader, hosted) << '\t' << number << std::hex;
            for (const std::uint32_t word : words)
                out << ' ' << word;
            out << std::dec << '\n';
        });
        return out ? 0 : 1;
    }
    return RUN_ALL_TESTS();
}
