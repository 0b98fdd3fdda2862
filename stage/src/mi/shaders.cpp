// Shader instances, chains of shaders, and phenomena.
#include <stdexcept>
#include <unordered_set>

#include "mi/parser_impl.h"
#include "scene/libraries.h"

namespace stage::mi {

namespace {

// Bounds for input that would otherwise exhaust the stack.
constexpr int deepest_shader = 64;
constexpr int deepest_phenomenon = 12;

// Holds a member of the parser at another value for the length of a block.
template <class T> class Held {
public:
    Held(T& place, T value) : place_(place), before_(std::move(place)) { place_ = std::move(value); }
    ~Held() { place_ = std::move(before_); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

private:
    T& place_;
    T before_;
};

} // namespace

// `shader "n" "decl" ( ... )`; an edit may leave the declaration's name out.
void Parser::shader_element() {
    const Token word = name("the name of the shader");
    Element* existing = nullptr;
    if (incremental_)
        existing = &resolve(word, miSCENE_FUNCTION, "shader");
    else
        check_new(word);
    if (existing && lexer_.peek().is('(')) {
        auto& declared = const_cast<Declaration&>(*existing->shader->declaration);
        instantiate(declared, word, existing, existing->name);
        return;
    }
    const Token declared = name("the name of a shader declaration");
    Element& element =
        instantiate(declaration(declared), declared, existing, existing ? existing->name : qualified(word));
    if (!existing)
        give_name(element, word);
}

Declaration& Parser::declaration(const Token& name, bool of_data) {
    const auto found = scene_.declarations.find((of_data ? "data " : "") + std::string(name.value));
    if (found != scene_.declarations.end())
        return *found->second;
    Nearest near(name.value);
    for (const auto& [key, known] : scene_.declarations)
        if ((known->kind == Declaration::Kind::data) == of_data)
            near.offer(known->name);
    fail(name, (of_data ? "there is no data declaration " + quoted(name)
                        : "the shader " + quoted(name) + " is not declared") +
                   near.question());
}

// Reads the parameters that follow and makes a shader instance, or gives an existing one new parameters.
// The name is for messages: until it is given, or if it never is, the instance cannot be looked up by it.
Element& Parser::instantiate(Declaration& declaration, const Token& at, Element* existing,
                             std::string_view name) {
    if (declaration.kind == Declaration::Kind::shader) {
        try {
            bind_code(scene_, declaration);
        } catch (const std::runtime_error& error) {
            fail(at, error.what());
        }
    }
    if (depth_ >= deepest_shader)
        fail(at, "shaders are nested more than " + std::to_string(deepest_shader) + " deep");
    const Held<int> deeper(depth_, depth_ + 1);

    BlockBuilder block(declaration.params, declaration.block_size);
    if (existing && existing->shader->declaration == &declaration)
        for (const Param& param : declaration.params)
            block.copy(param.offset, param, view_block(*existing), param.offset);
    const bool any_given = parameters(block, declaration);

    Element& element =
        existing ? *existing : scene_.database.add(miSCENE_FUNCTION, {}, place_of(at), sizeof(miFunction));
    element.name = name;
    if (!existing || element.shader->declaration != &declaration)
        element.shader = std::make_unique<ShaderInstance>();
    element.shader->declaration = &declaration;
    element.shader->code = declaration.code;
    element.shader->result_size = declaration.result.size;
    store_block(scene_.database, element, block);
    auto* record = element.as<miFunction>();
    const bool phenomenon = declaration.kind == Declaration::Kind::phenomenon;
    record->type = phenomenon ? miFUNCTION_PHEN : miFUNCTION_C;
    record->function_decl = declaration.tag;
    record->interfacephen = phenomenon_ ? phenomenon_->instance->tag : miNULLTAG;
    if (existing)
        check_cycle(element, at);
    if (phenomenon)
        build_phenomenon(element, declaration, at);
    empty_parameters_ = any_given ? miNULLTAG : element.tag;
    return element;
}

// What a shader or material may run: the shaders that its parameters are connected to or name, those in its
// slots, and the roots of a phenomenon.
std::vector<miTag> Parser::runs(const Element& element) const {
    std::vector<miTag> heads; // of lists
    std::vector<miTag> tags;
    if (element.type == miSCENE_MATERIAL) {
        const auto& m = *element.as<miMaterial>();
        heads = {m.shader,  m.displace, m.shadow,    m.volume,  m.environment,
                 m.contour, m.photon,   m.photonvol, m.lightmap};
    } else if (element.type == miSCENE_FUNCTION && element.shader) {
        const ShaderInstance& instance = *element.shader;
        heads = {instance.root, instance.lens, instance.output, instance.volume, instance.environment};
        collect_shaders(view_block(element), instance.declaration->params, heads);
        for (const Connection& connection : instance.connections)
            tags.push_back(connection.shader);
    }
    for (miTag tag : heads)
        while (tag != miNULLTAG) {
            tags.push_back(tag);
            const auto* function = scene_.database.record<miFunction>(tag, miSCENE_FUNCTION);
            tag = function ? function->next_function : miNULLTAG;
        }
    return tags;
}

// Only an edit can lead a shader back to itself, and the shaders of a material can name it; everything else
// is defined before it is used.
void Parser::check_cycle(const Element& start, const Token& at) const {
    std::vector<const Element*> open{&start};
    std::unordered_set<const Element*> seen;
    while (!open.empty()) {
        const Element* element = open.back();
        open.pop_back();
        for (const miTag tag : runs(*element)) {
            const Element* next = scene_.database.find(tag);
            if (next == &start)
                fail(at, '"' + start.name + "\" leads back to itself and would run without end");
            if (next && seen.insert(next).second)
                open.push_back(next);
        }
    }
}

// One shader: a named one, or a new one without a name.
Element& Parser::shader(miShader_type kind) {
    const Token word = name("a shader");
    Element* element = nullptr;
    if (lexer_.peek().is('(')) {
        element = &instantiate(declaration(word), word, nullptr, word.value);
    } else {
        element = &resolve(word, miSCENE_FUNCTION, "shader");
    }
    check_apply(*element, kind, word);
    return *element;
}

namespace {

std::string kinds(unsigned apply) {
    std::string list;
    for (const auto& [word, kind] : apply_words)
        if (apply >> static_cast<unsigned>(kind) & 1u)
            list += (list.empty() ? "" : ", ") + std::string(word);
    return list;
}

} // namespace

void Parser::check_apply(const Element& function, miShader_type kind, const Token& at) {
    const Declaration& declared = *function.shader->declaration;
    if (kind < miNSHADERTYPES && declared.apply != 0 &&
        (declared.apply >> static_cast<unsigned>(kind) & 1u) == 0)
        warn(place_of(at), "the shader \"" + declared.name + "\" is applied as " + kinds(1u << kind) +
                               ", but declared for " + kinds(declared.apply));
}

std::vector<std::pair<Token, miTag>> Parser::shader_items(miShader_type kind) {
    std::vector<std::pair<Token, miTag>> items;
    if (accept('=')) {
        const Token word = lexer_.peek();
        if (!accept("interface")) {
            items.emplace_back(word, shader(kind).tag);
        } else if (const miTag tag = interface_tag(miTYPE_SHADER); tag != miNULLTAG) {
            items.emplace_back(word, tag);
        }
        return items;
    }
    // A word without quotes continues the list only with parameters behind it: it may be the next statement.
    do {
        const Token word = lexer_.peek();
        items.emplace_back(word, shader(kind).tag);
    } while (lexer_.peek().kind == Kind::string ||
             (lexer_.peek().kind == Kind::name && lexer_.following() == '('));
    return items;
}

miTag Parser::shaders(miShader_type kind, std::uint64_t owner) {
    if (accept("null"))
        return miNULLTAG;
    const auto items = shader_items(kind);
    chain(items, owner, "shader");
    return items.empty() ? miNULLTAG : items.front().second;
}

// ---- phenomena -----------------------------------------------------------------------------------

void Parser::build_phenomenon(Element& function, const Declaration& declaration, const Token& at) {
    int level = 0;
    for (const Phenomenon* outer = phenomenon_; outer; outer = outer->outer)
        ++level;
    if (level >= deepest_phenomenon)
        fail(at, "phenomena are nested more than " + std::to_string(deepest_phenomenon) + " deep");
    try {
        phenomenon_body(function, declaration, at);
    } catch (const SceneError& error) {
        throw SceneError(error, place_of(at).text() + ": in this instance of the phenomenon \"" +
                                    declaration.name + '"');
    }
}

void Parser::phenomenon_body(Element& function, const Declaration& declaration, const Token& at) {
    Phenomenon own{&declaration, &function, phenomenon_, {}};
    const Held<Phenomenon*> inner(phenomenon_, &own);
    const Held<bool> new_elements(incremental_, false);
    const Held<std::vector<std::string>> no_namespaces(namespaces_, {});
    Lexer body([this](const std::string& file, const std::string& folder, bool search) {
        return find_include(file, folder, search);
    });
    body.push(declaration.body->text);
    const Held<Lexer> text(lexer_, std::move(body));

    ShaderInstance& shader = *function.shader;
    shader.root = shader.lens = shader.output = shader.volume = shader.environment = miNULLTAG;
    while (lexer_.peek().kind != Kind::end) {
        const Token word = lexer_.peek();
        if (phenomenon_root(function, declaration) || entity(word))
            continue;
        fail_unknown("a phenomenon");
    }
    if (shader.root == miNULLTAG)
        fail(at, "the phenomenon \"" + declaration.name + "\" (declared at " + declaration.place.text() +
                     ") has no root");
}

bool Parser::phenomenon_root(Element& function, const Declaration& declaration) {
    ShaderInstance& shader = *function.shader;
    const auto slot = [&](Slot which) { return owner(function, which); };
    if (accept("root"))
        shader.root = root_element(declaration);
    else if (accept("lens"))
        shader.lens = shaders(miSHADER_LENS, slot(Slot::lens));
    else if (accept("output"))
        shader.output = shaders(miSHADER_OUTPUT, slot(Slot::output));
    else if (accept("volume"))
        shader.volume = shaders(miSHADER_VOLUME, slot(Slot::volume));
    else if (accept("environment"))
        shader.environment = shaders(miSHADER_ENVIRONMENT, slot(Slot::environment));
    else
        return false;
    return true;
}

miTag Parser::root_element(const Declaration& declaration) {
    const miParam_type type = declaration.result.type;
    if (type == miTYPE_MATERIAL || type == miTYPE_GEOMETRY) {
        accept(type == miTYPE_MATERIAL ? "material" : "geometry");
        if (!accept('='))
            return reference(type);
        return accept("interface") ? interface_tag(type) : reference(type);
    }
    accept('=');
    const Token word = lexer_.peek();
    const miTag tag = accept("interface") ? interface_tag(miTYPE_SHADER) : shader(miNSHADERTYPES).tag;
    const Element* root = scene_.database.find(tag);
    if (root && !same_type(root->shader->declaration->result, declaration.result))
        fail(word, "the root returns a " + type_name(root->shader->declaration->result) +
                       ", but the phenomenon is "
                       "declared to return a " +
                       type_name(declaration.result));
    return tag;
}

} // namespace stage::mi
