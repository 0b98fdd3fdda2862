// The parser's insides: one class, its parts in one file for each subject.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "mi/lexer.h"
#include "mi/nearest.h"
#include "mi/parser.h"
#include "scene/block.h"
#include "scene/declaration.h"
#include "scene/scene.h"

namespace stage {

// The statements between a phenomenon's parameters and its `end declare`; read anew for each instance.
struct PhenomenonBody {
    std::shared_ptr<mi::Source> text;
};

namespace mi {

// What a declaration says that a shader may be applied as.
inline constexpr std::pair<std::string_view, int> apply_words[] = {
    {"lens", miSHADER_LENS},         {"material", miSHADER_MATERIAL},       {"light", miSHADER_LIGHT},
    {"shadow", miSHADER_SHADOW},     {"environment", miSHADER_ENVIRONMENT}, {"volume", miSHADER_VOLUME},
    {"texture", miSHADER_TEXTURE},   {"photonvol", miSHADER_PHOTONVOL},     {"photon", miSHADER_PHOTON},
    {"geometry", miSHADER_GEOMETRY}, {"displace", miSHADER_DISPLACE},       {"emitter", miSHADER_PHOTONEMIT},
    {"output", miSHADER_OUTPUT},     {"lightmap", miSHADER_LIGHTMAP},       {"state", miSHADER_STATE},
    {"contour", miSHADER_CONTOUR},
};

inline constexpr int deepest_trace = 10000;
inline constexpr int largest_picture = 1 << 16; // pixels along one side

class Parser {
public:
    Parser(Scene& scene, const RenderHandler& on_render);
    void run(std::shared_ptr<Source> source);

private:
    using Kind = Token::Kind;

    // The phenomenon whose instance is being built.
    struct Phenomenon {
        const Declaration* declaration;
        Element* instance;
        Phenomenon* outer;
        std::unordered_map<std::string, miTag> names; // of its own elements
    };

    // ---- words (parser.cpp)
    Place place_of(const Token& token) const { return token.source->place(token.at); }
    [[noreturn]] void fail(const Token& token, const std::string& message) const {
        lexer_.fail(token, message);
    }
    [[noreturn]] void fail_expected(const std::string& what);
    // No statement of `where`: names the likely word, or all that are known and what else may stand there.
    [[noreturn]] void fail_unknown(const std::string& where, const std::string& also = {});
    void warn(const Place& place, const std::string& message);
    // Whether the word is next. What was asked for in vain is remembered for messages until the next word is
    // taken, so `word` must be a literal.
    bool sees(std::string_view word);
    [[nodiscard]] std::string known_words(); // that were asked for at this place
    [[nodiscard]] Nearest nearest_known();
    bool accept(std::string_view word);
    bool accept(char sign);
    void expect(std::string_view word);
    void expect(char sign);
    Token name(const char* what); // a string or a word
    std::string text(const char* what);
    bool at_name() { return lexer_.peek().kind == Kind::string || lexer_.peek().kind == Kind::name; }
    bool at_number() { return lexer_.peek().kind == Kind::number; }
    bool on_off();
    bool optional_on_off(); // on when nothing is said
    int integer(std::int64_t low = INT32_MIN, std::int64_t high = INT32_MAX);
    float scalar();
    miColor color(float default_alpha);
    miVector vector();
    void matrix(miScalar* values);
    int choice(std::span<const std::pair<std::string_view, int>> words);
    int choice(std::initializer_list<std::pair<std::string_view, int>> words) {
        return choice(std::span(words.begin(), words.size()));
    }
    void end_of(std::string_view entity); // the word behind `end`

    // ---- commands (parser.cpp)
    void statement();
    bool command(const Token& word);
    bool entity(const Token& word);
    void link_library();
    void open_namespace();
    void delete_element();
    void set_command();
    void render();
    void check_root(const Token& root, const RenderCommand& command);
    std::string find_include(const std::string& file, const std::string& folder, bool search) const;
    std::string find_file(const std::string& file) const; // "" when there is none

    // ---- elements by name (parser.cpp)
    std::string qualified(const Token& name) const;
    // Asks whether the element of this type (0: of any) was meant that has a name like this.
    [[nodiscard]] std::string similar_name(std::string_view name, int type) const;
    Element* lookup(std::string_view name) const;
    Element& resolve(const Token& name, const char* what, int similar_type = 0);
    Element& resolve(const Token& name, int type, const char* what);
    // The element that a definition makes or, after `incremental`, changes.
    Element& define(const Token& name, int type, std::size_t size, const char* what);
    void check_new(const Token& name) const;
    void give_name(Element& element, const Token& name);
    miTag make_string(std::string_view text, const Place& place);
    miTag make_tags(const std::vector<miTag>& tags, const Place& place);
    // Makes a chain of items through their `next` fields. Items may be in several chains only when each has
    // the same follower everywhere; `owner` (element and slot) may change its own chain.
    void chain(const std::vector<std::pair<Token, miTag>>& items, std::uint64_t owner, const char* what);

    // ---- declarations (declare.cpp)
    void declare();
    void declare_data();
    void declare_function(bool phenomenon);
    void register_declaration(std::unique_ptr<Declaration> declaration, const std::string& key,
                              const Token& name);
    std::vector<Param> parameter_list(char closing, int depth);
    Param parameter(int depth);
    Param type(int depth);
    void default_value(Param& param);
    void declaration_options(Declaration& declaration);
    void apply_kinds(Declaration& declaration);
    void skip_body(Declaration& declaration);

    // ---- values (values.cpp)
    bool parameters(BlockBuilder& block, const Declaration& declaration); // false when there are none
    void value(BlockBuilder& block, std::uint32_t offset, const Param& param);
    void array_value(BlockBuilder& block, std::uint32_t offset, const Param& param);
    void struct_value(BlockBuilder& block, std::uint32_t offset, const Param& param);
    void refuse_shader(const Param& param);
    void plain_value(std::byte* to, const Param& param);
    miTag reference(miParam_type type);
    void connection(BlockBuilder& block, std::uint32_t offset, const Param& param);
    void interface_value(BlockBuilder& block, std::uint32_t offset, const Param& param);
    miTag interface_tag(miParam_type type);

    // ---- shaders (shaders.cpp)
    void shader_element();
    Declaration& declaration(const Token& name, bool of_data = false);
    Element& instantiate(Declaration& declaration, const Token& at, Element* existing, std::string_view name);
    Element& shader(miShader_type kind);
    void check_apply(const Element& function, miShader_type kind, const Token& at);
    // One shader or a chain of them; the first one's tag.
    miTag shaders(miShader_type kind, std::uint64_t owner);
    std::vector<std::pair<Token, miTag>> shader_items(miShader_type kind);
    std::vector<miTag> runs(const Element& element) const;
    void check_cycle(const Element& start, const Token& at) const;
    void build_phenomenon(Element& function, const Declaration& declaration, const Token& at);
    void phenomenon_body(Element& function, const Declaration& declaration, const Token& at);
    bool phenomenon_root(Element& function, const Declaration& declaration);
    miTag root_element(const Declaration& declaration);

    // ---- options (options.cpp)
    void options();
    bool options_rays(miOptions& o);
    bool options_photons(miOptions& o);
    bool options_sampling(miOptions& o);
    bool options_picture(miOptions& o);
    void options_filter(miOptions& o);
    float caustic_filter();
    void options_text(Element& element);

    // ---- cameras (camera.cpp)
    void camera();
    bool camera_lens(miCamera& c, const Element& element);
    bool camera_picture(miCamera& c);
    std::string one_of(const char* what, std::span<const std::string_view> list, const char* known);
    void framebuffer(std::vector<FramebufferDesc>& buffers);
    void output(Element& camera, std::vector<FramebufferDesc>& buffers,
                std::vector<std::pair<Token, miTag>>& outputs);

    // ---- elements (elements.cpp, placing.cpp, textures.cpp, object.cpp)
    void material();
    void material_phenomenon(const Token& name);
    void inherit_parameters(miTag main_shader, miTag shader);
    void light();
    void light_area(miLight& light, const Token& word);
    void light_shadowmap(miLight& light);
    struct LightPlace { // which parts a light has
        bool origin, direction, spread;
    };
    bool light_place(miLight& light, LightPlace& given);
    bool light_photons(miLight& light);
    miTag shadowmap_file();
    void light_type(miLight& light, const LightPlace& given, const Token& name);
    void texture();
    void texture_file(Element& element);
    void texture_bytes(Element& element, miParam_type kind);
    void writable_texture(Element& element, miParam_type kind);
    void light_profile();
    void read_profile(Element& element, const Token& file);
    void color_profile();
    void user_data();
    std::vector<std::byte> byte_strings();
    std::vector<std::byte> data_file(const Token& name);
    Element& data_block(const Token& at, const Declaration& declaration, Element* existing = nullptr);
    Element& make_data(Element* existing, const Place& place, const std::vector<std::byte>& bytes,
                       const Declaration* declaration);
    void object();
    bool object_switch(miObject& o);
    bool object_box(miObject& o);
    void object_flag(miObject& o, bool has_group);
    miTag object_material(const Token& word);
    void instance();
    bool instance_flags(miInstance& i);
    bool instance_place(miInstance& i);
    bool instance_lists(miInstance& i);
    bool instance_approximation();
    void instance_materials(miInstance& i);
    void instance_lights(miInstance& i);
    // A list of lights for the instance: a tag array, or null for all; its length.
    std::pair<miTag, int> light_list();
    void group();
    miUint1 mode(int most);
    miUint1 shadow_mode();
    void attach_data(std::vector<std::pair<Token, miTag>>& chain, miTag& head);

    Scene& scene_;
    const RenderHandler& on_render_;
    Lexer lexer_;
    std::vector<std::string_view> known_; // words that were asked for at `known_at_`
    const char* known_at_ = nullptr;
    bool incremental_ = false;
    std::vector<std::string> namespaces_;
    Phenomenon* phenomenon_ = nullptr;
    int depth_ = 0;                            // of shaders within shaders
    miTag empty_parameters_ = miNULLTAG;       // the latest shader, if it was given none
    const Declaration* inheritance_ = nullptr; // of the parameters of instances; of the latest options
    struct Link {
        miTag next;
        std::uint64_t owner;
    };
    std::unordered_map<miTag, Link> links_;
};

// Slots of an element that own chains.
enum class Slot : std::uint8_t { shader, lens, output, volume, environment, data, emitter, material };

inline std::uint64_t owner(const Element& element, Slot slot, unsigned number = 0) {
    return std::uint64_t{element.tag} << 16 | static_cast<std::uint64_t>(slot) << 8 | number;
}

} // namespace mi
} // namespace stage
