// Values of parameters: literals, references to elements, connections.
#include <cstring>
#include <stdexcept>

#include "mi/parser_impl.h"

namespace stage::mi {

namespace {

template <class T> void store(std::byte* to, const T& value) {
    std::memcpy(to, &value, sizeof value);
}

// What is said of a name that is none of the parameters or members: which one was likely meant, or all.
std::string which_of(const std::vector<Param>& known, std::string_view name) {
    Nearest near(name);
    std::string all;
    for (const Param& param : known) {
        near.offer(param.name);
        all += (all.empty() ? "" : ", ") + param.name;
    }
    return near.found() ? near.question() : ", only " + (all.empty() ? "none" : all);
}

} // namespace

bool Parser::parameters(BlockBuilder& block, const Declaration& declaration) {
    const std::string of =
        (declaration.kind == Declaration::Kind::data ? "data \"" : "shader \"") + declaration.name + '"';
    std::vector<const Param*> given;
    expect('(');
    while (!accept(')')) {
        const Token word = name("the name of a parameter or ')'");
        const Param* param = declaration.find(word.value);
        if (!param) {
            fail(word, of + " (declared at " + declaration.place.text() + ") has no parameter " +
                           quoted(word) + which_of(declaration.params, word.value));
        }
        for (const Param* other : given)
            if (other == param)
                fail(word, "the parameter \"" + param->name + "\" is given twice");
        given.push_back(param);
        block.disconnect(param->offset, *param);
        try {
            value(block, param->offset, *param);
        } catch (const std::length_error& error) {
            fail(word, error.what());
        }
        if (!accept(',') && !lexer_.peek().is(')'))
            fail_expected("',' or ')' after the " + type_name(*param) + " \"" + param->name + "\" of " + of);
    }
    return !given.empty();
}

void Parser::value(BlockBuilder& block, std::uint32_t offset, const Param& param) {
    if (lexer_.peek().is('='))
        connection(block, offset, param);
    else if (param.type == miTYPE_ARRAY)
        array_value(block, offset, param);
    else if (is_reference(param.type)) {
        const miTag tag = reference(param.type);
        store(block.at(offset), tag);
    } else {
        refuse_shader(param);
        if (param.type == miTYPE_STRUCT)
            struct_value(block, offset, param);
        else
            plain_value(block.at(offset), param);
    }
}

// A shader's name in place of a literal is a connection without its sign.
void Parser::refuse_shader(const Param& param) {
    const Token word = lexer_.peek();
    if (!at_name() || param.type == miTYPE_STRING ||
        (param.type == miTYPE_BOOLEAN && word.kind != Kind::string))
        return;
    const Element* named = lookup(word.value);
    const bool made_here = lexer_.following() == '(' && scene_.declarations.contains(std::string(word.value));
    if (made_here || (named && named->type == miSCENE_FUNCTION))
        fail(word, "expected a " + type_name(param) + ", found the shader " + quoted(word) +
                       "; write = in front of it to take the shader's result");
}

void Parser::array_value(BlockBuilder& block, std::uint32_t offset, const Param& param) {
    expect('[');
    block.begin_array(offset, param);
    while (!accept(']')) {
        const std::uint32_t element = block.append(offset, param);
        value(block, element, param.members.front());
        if (!accept(',') && !lexer_.peek().is(']'))
            fail_expected("',' or ']' after an element of the " + type_name(param));
    }
}

// Members in their order, or any of them by name; those that are not named keep what they have.
void Parser::struct_value(BlockBuilder& block, std::uint32_t offset, const Param& param) {
    expect('{');
    std::size_t next = 0;
    while (!accept('}')) {
        const bool string = lexer_.peek().kind == Kind::string;
        const char after = string ? lexer_.following() : '\0';
        const Param* member = nullptr;
        if (string && after != ',' && after != '}' && after != '(') {
            const Token word = lexer_.next();
            for (const Param& candidate : param.members)
                if (candidate.name == word.value)
                    member = &candidate;
            if (!member)
                fail(word,
                     "the structure has no member " + quoted(word) + which_of(param.members, word.value));
        } else if (next < param.members.size()) {
            member = &param.members[next++];
        } else {
            fail_expected("'}', since the structure has " + std::to_string(param.members.size()) +
                          " members");
        }
        block.disconnect(offset + member->offset, *member);
        value(block, offset + member->offset, *member);
        if (!accept(',') && !lexer_.peek().is('}'))
            fail_expected("',' or '}' after the member \"" + member->name + '"');
    }
}

void Parser::plain_value(std::byte* to, const Param& param) {
    const Token word = lexer_.peek();
    switch (param.type) {
    case miTYPE_BOOLEAN:
        return store<miBoolean>(to, on_off() ? miTRUE : miFALSE);
    case miTYPE_INTEGER:
        return store<miInteger>(to, integer());
    case miTYPE_SCALAR:
        return store<miScalar>(to, scalar());
    case miTYPE_COLOR:
        return store<miColor>(to, color(1.0f));
    case miTYPE_VECTOR:
        return store<miVector>(to, vector());
    case miTYPE_TRANSFORM: {
        miMatrix values;
        matrix(values);
        std::memcpy(to, values, sizeof values);
        return;
    }
    case miTYPE_STRING: {
        const Token string = name("a string");
        return store<miTag>(to, make_string(string.value, place_of(string)));
    }
    default:
        fail(word, "a " + type_name(param) + " cannot be given a value");
    }
}

miTag Parser::reference(miParam_type type) {
    if (lexer_.peek().is("null")) {
        lexer_.next();
        return miNULLTAG;
    }
    const std::string what = type_name(type);
    if (!at_name())
        fail_expected("the name of a " + what);
    const bool takes_shader = type == miTYPE_SHADER || type == miTYPE_TEX || type == miTYPE_COLOR_TEX ||
                              type == miTYPE_SCALAR_TEX || type == miTYPE_VECTOR_TEX;
    if (takes_shader && lexer_.following() == '(')
        return shader(miNSHADERTYPES).tag;
    const Token word = lexer_.next();
    if (word.kind == Kind::string && word.value.empty())
        return miNULLTAG;
    const Element& element = resolve(word, what.c_str());
    const int found = element.type;
    bool fits = false;
    switch (type) {
    case miTYPE_SHADER:
        fits = found == miSCENE_FUNCTION;
        break;
    case miTYPE_LIGHT:
        fits = found == miSCENE_LIGHT || found == miSCENE_INSTANCE || found == miSCENE_GROUP;
        break;
    case miTYPE_MATERIAL:
        if (element.shader && scene_.database.record<miMaterial>(element.shader->root, miSCENE_MATERIAL))
            return element.shader->root;
        fits = found == miSCENE_MATERIAL;
        break;
    case miTYPE_GEOMETRY:
        fits = found == miSCENE_OBJECT || found == miSCENE_INSTANCE || found == miSCENE_GROUP ||
               found == miSCENE_FUNCTION;
        break;
    case miTYPE_LIGHTPROFILE:
        fits = found == miSCENE_LIGHTPROFILE;
        break;
    case miTYPE_DATA:
        fits = found == miSCENE_USERDATA;
        break;
    default: // textures
        fits = found == miSCENE_IMAGE || found == miSCENE_FUNCTION;
    }
    if (!fits)
        fail(word,
             '"' + std::string(word.value) + "\" (defined at " + element.place.text() + ") is no " + what);
    return element.tag;
}

void Parser::connection(BlockBuilder& block, std::uint32_t offset, const Param& param) {
    expect('=');
    if (accept("interface"))
        return interface_value(block, offset, param);
    if (is_reference(param.type)) // the element itself is the value
        return store(block.at(offset), reference(param.type));
    if (param.type == miTYPE_ARRAY)
        fail_expected("interface \"parameter\" (elements of an array are connected one by one)");
    if (!at_name())
        fail_expected("the name of a shader");

    const Token word = lexer_.peek();
    std::string_view path;
    const Element* source = nullptr;
    if (lexer_.following() == '(') {
        source = &shader(miSHADER_TEXTURE);
    } else {
        lexer_.next();
        source = lookup(word.value);
        for (std::size_t dot = word.value.size(); !source;) {
            dot = dot == 0 ? std::string_view::npos : word.value.rfind('.', dot - 1);
            if (dot == std::string_view::npos)
                fail(word, "there is no shader " + quoted(word) + similar_name(word.value, miSCENE_FUNCTION));
            source = lookup(word.value.substr(0, dot));
            path = word.value.substr(dot + 1);
        }
    }
    if (source->type != miSCENE_FUNCTION)
        fail(word, '"' + source->name + "\" (defined at " + source->place.text() + ") is no shader");
    std::uint32_t source_offset = 0;
    const Param& result = source->shader->declaration->result;
    const Param* member = find_member(result, path, &source_offset);
    if (!member)
        fail(word, "the result of shader \"" + source->name + "\" has no member \"" + std::string(path) +
                       '"' + which_of(result.members, path));
    if (!same_type(*member, param))
        fail(word, "a " + type_name(param) + " cannot take the " + type_name(*member) + " that the shader " +
                       quoted(word) + " returns" +
                       (member->type == miTYPE_STRUCT ? "; name one of its members" : ""));
    block.connect(offset, param, source->tag, source_offset);
}

// The parameter of the enclosing phenomenon that is read next, with its place in the phenomenon's block.
void Parser::interface_value(BlockBuilder& block, std::uint32_t offset, const Param& param) {
    const Token word = name("the name of a parameter of the phenomenon");
    if (!phenomenon_)
        fail(word, "'interface' has a meaning only within a phenomenon");
    Param whole;
    whole.type = miTYPE_STRUCT;
    whole.members = phenomenon_->declaration->params;
    std::uint32_t from = 0;
    const Param* source = word.value.empty() ? nullptr : find_member(whole, word.value, &from);
    if (!source)
        fail(word, "the phenomenon \"" + phenomenon_->declaration->name + "\" has no parameter " +
                       quoted(word) + which_of(whole.members, word.value));
    if (!same_type(*source, param))
        fail(word, "a " + type_name(param) + " cannot take the " + type_name(*source) + " \"" +
                       std::string(word.value) + '"');
    block.copy(offset, param, view_block(*phenomenon_->instance), from);
}

miTag Parser::interface_tag(miParam_type type) {
    const Token word = lexer_.peek();
    std::vector<Param> alone(1);
    alone.front().type = type;
    const std::uint32_t size = lay_out(alone);
    BlockBuilder block(alone, size);
    interface_value(block, 0, alone.front());
    if (!block.connections().empty())
        fail(word, "the parameter is connected to a shader, but an element's name is needed here");
    miTag tag;
    std::memcpy(&tag, block.at(0), sizeof tag);
    return tag;
}

} // namespace stage::mi
