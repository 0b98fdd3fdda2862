// Declarations: shaders, phenomena and user data.
#include <algorithm>
#include <cstring>

#include "mi/parser_impl.h"

namespace stage::mi {

namespace {

constexpr int deepest_struct = 16;
constexpr std::size_t most_parameters = 4096;

} // namespace

void Parser::declare() {
    if (accept("data"))
        declare_data();
    else if (accept("shader"))
        declare_function(false);
    else if (accept("phenomenon"))
        declare_function(true);
    else
        fail_expected("shader, phenomenon or data");
}

void Parser::declare_data() {
    const Token word = name("the name of the data declaration");
    auto declaration = std::make_unique<Declaration>();
    declaration->kind = Declaration::Kind::data;
    expect('(');
    declaration->params = parameter_list(')', 0);
    if (accept("version"))
        declaration->version = integer(0);
    end_of("declare");
    register_declaration(std::move(declaration), "data " + std::string(word.value), word);
}

void Parser::declare_function(bool phenomenon) {
    auto declaration = std::make_unique<Declaration>();
    declaration->kind = phenomenon ? Declaration::Kind::phenomenon : Declaration::Kind::shader;
    declaration->result.type = miTYPE_COLOR;
    // A name in quotes or a word before '(' is the declaration's own: the result's type may be left out.
    if (lexer_.peek().kind != Kind::string && lexer_.following() != '(') {
        const Token at = lexer_.peek();
        declaration->result = type(0);
        const miParam_type result = declaration->result.type;
        const bool element = result == miTYPE_MATERIAL || result == miTYPE_GEOMETRY;
        if (result > miTYPE_TRANSFORM && result != miTYPE_STRUCT && !(phenomenon && element))
            fail(at, "a " + type_name(result) + " cannot be a result");
        for (const Param& member : declaration->result.members)
            if (member.type == miTYPE_ARRAY)
                fail(at, "the array \"" + member.name + "\" cannot be part of a result");
    }
    const Token word = name("the declaration's name");
    std::vector<Param> result{declaration->result};
    lay_out(result);
    declaration->result = result.front();
    expect('(');
    declaration->params = parameter_list(')', 0);
    declaration_options(*declaration);
    if (phenomenon)
        skip_body(*declaration);
    else
        end_of("declare");
    register_declaration(std::move(declaration), std::string(word.value), word);
}

void Parser::register_declaration(std::unique_ptr<Declaration> declaration, const std::string& key,
                                  const Token& name) {
    if (name.value.empty())
        fail(name, "a declaration needs a name");
    if (const auto known = scene_.declarations.find(key); known != scene_.declarations.end())
        fail(name, quoted(name) + " is already declared at " + known->second->place.text());
    declaration->name = name.value;
    declaration->place = place_of(name);
    declaration->block_size = lay_out(declaration->params);

    Element& element =
        scene_.database.add(miSCENE_FUNCTION_DECL, {}, declaration->place, sizeof(miFunction_decl));
    auto* record = element.as<miFunction_decl>();
    record->type = declaration->kind == Declaration::Kind::shader       ? miFUNCTION_C
                   : declaration->kind == Declaration::Kind::phenomenon ? miFUNCTION_PHEN
                                                                        : miFUNCTION_DATA;
    record->result_type = declaration->result.type;
    record->result_size = static_cast<int>(declaration->result.size);
    record->version = declaration->version;
    record->apply = declaration->apply;
    record->parameter_size = static_cast<int>(declaration->block_size);
    record->name = make_string(name.value, declaration->place);
    declaration->tag = element.tag;
    element.declaration = declaration.get();
    scene_.declarations.emplace(key, std::move(declaration));
}

std::vector<Param> Parser::parameter_list(char closing, int depth) {
    std::vector<Param> params;
    while (!accept(closing)) {
        const Token at = lexer_.peek();
        params.push_back(parameter(depth));
        for (std::size_t i = 0; i + 1 < params.size(); ++i)
            if (params[i].name == params.back().name)
                fail(at, '"' + params.back().name + "\" is declared twice");
        if (params.size() > most_parameters)
            fail(at, "more than " + std::to_string(most_parameters) + " parameters");
        if (!accept(',') && !lexer_.peek().is(closing))
            fail_expected(std::string("',' or '") + closing + "' after the parameter \"" +
                          params.back().name + '"');
    }
    return params;
}

Param Parser::parameter(int depth) {
    Param param = type(depth);
    if (param.name.empty()) {
        const Token word = name("the parameter's name");
        if (word.value.empty())
            fail(word, "a parameter needs a name");
        param.name = word.value;
    }
    if (accept("default") || (!lexer_.peek().is(',') && !lexer_.peek().is(')') && !lexer_.peek().is('}')))
        default_value(param);
    return param;
}

Param Parser::type(int depth) {
    static constexpr std::pair<std::string_view, miParam_type> types[] = {
        {"boolean", miTYPE_BOOLEAN},
        {"integer", miTYPE_INTEGER},
        {"scalar", miTYPE_SCALAR},
        {"string", miTYPE_STRING},
        {"color", miTYPE_COLOR},
        {"vector", miTYPE_VECTOR},
        {"transform", miTYPE_TRANSFORM},
        {"shader", miTYPE_SHADER},
        {"texture", miTYPE_TEX},
        {"light", miTYPE_LIGHT},
        {"struct", miTYPE_STRUCT},
        {"array", miTYPE_ARRAY},
        {"material", miTYPE_MATERIAL},
        {"geometry", miTYPE_GEOMETRY},
        {"lightprofile", miTYPE_LIGHTPROFILE},
        {"data", miTYPE_DATA}};
    const Token word = lexer_.peek();
    const auto* found = std::find_if(std::begin(types), std::end(types),
                                     [this](const auto& known) { return accept(known.first); });
    if (found == std::end(types))
        fail_expected("a type (" + known_words() + ')');
    Param param;
    param.type = found->second;
    if (param.type == miTYPE_COLOR && accept("texture")) {
        param.type = miTYPE_COLOR_TEX;
    } else if (param.type == miTYPE_SCALAR && accept("texture")) {
        param.type = miTYPE_SCALAR_TEX;
    } else if (param.type == miTYPE_VECTOR && accept("texture")) {
        param.type = miTYPE_VECTOR_TEX;
    } else if (param.type == miTYPE_ARRAY) {
        if (lexer_.peek().is("array"))
            fail(word, "an array cannot hold arrays");
        Param element = type(depth + 1);
        for (const Param& member : element.members)
            if (member.type == miTYPE_ARRAY)
                fail(word, "an array cannot hold arrays");
        param.name = std::move(element.name);
        element.name.clear();
        param.members.push_back(std::move(element));
    } else if (param.type == miTYPE_STRUCT) {
        if (depth >= deepest_struct)
            fail(word, "types are nested more than " + std::to_string(deepest_struct) + " deep");
        // The name may stand before or behind the members.
        if (at_name())
            param.name = text("the structure's name");
        expect('{');
        param.members = parameter_list('}', depth + 1);
        if (param.members.empty())
            fail(word, "a structure needs members");
    }
    return param;
}

// Keeps the bytes of the value; of an array those of its elements, one after another.
void Parser::default_value(Param& param) {
    const Token at = lexer_.peek();
    std::vector<Param> alone{param};
    const std::uint32_t size = lay_out(alone);
    BlockBuilder block(alone, size);
    value(block, 0, alone.front());
    if (!block.connections().empty())
        fail(at, "a default cannot be connected");
    if (param.type == miTYPE_STRUCT && block.bytes().size() > size)
        fail(at, "give the defaults of arrays within a structure beside the arrays");
    std::uint32_t first = 0;
    std::uint32_t bytes = alone.front().size;
    if (param.type == miTYPE_ARRAY) {
        ArrayHead head;
        std::memcpy(&head, block.at(0), sizeof head);
        const std::uint32_t step = alone.front().members.front().size;
        first = array_element_offset(alone.front()) + static_cast<std::uint32_t>(head.first) * step;
        bytes = static_cast<std::uint32_t>(head.count) * step;
    }
    param.default_value.assign(block.at(first), block.at(first) + bytes);
}

void Parser::declaration_options(Declaration& declaration) {
    for (;;) {
        if (accept("version")) {
            declaration.version = integer(0);
        } else if (accept("apply")) {
            apply_kinds(declaration);
        } else if (accept("shadow")) {
            declaration.shadow_mode = lexer_.peek().text;
            choice({{"off", 0}, {"on", 0}, {"simple", 0}, {"sort", 0}, {"segments", 0}});
        } else if (accept("trace")) {
            declaration.trace_mode = on_off() ? "on" : "off";
        } else if (accept("scanline")) {
            declaration.scanline_mode = on_off() ? "on" : "off";
        } else {
            return;
        }
    }
}

void Parser::apply_kinds(Declaration& declaration) {
    do {
        const int kind = choice(apply_words);
        declaration.apply |= 1u << static_cast<unsigned>(kind);
    } while (accept(','));
}

// The body is read when an instance is made; here only its end is found.
void Parser::skip_body(Declaration& declaration) {
    const Token first = lexer_.peek();
    for (;;) {
        const Token& word = lexer_.peek();
        if (word.kind == Kind::end)
            fail_expected("'end declare'");
        if (word.is("end")) {
            const Token end = lexer_.next();
            if (!lexer_.peek().is("declare"))
                continue;
            if (end.source != first.source)
                fail(end, "a phenomenon must end in the file in which it begins");
            declaration.body = std::make_shared<PhenomenonBody>();
            declaration.body->text = Source::excerpt(*first.source, first.at, end.at);
            expect("declare");
            return;
        }
        lexer_.next();
    }
}

} // namespace stage::mi
