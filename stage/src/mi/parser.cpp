// The scene language: words, names and commands. The entities are in the other files of this folder.
#include "mi/parser.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <unordered_set>

#include "mi/parser_impl.h"
#include "scene/libraries.h"

namespace stage {

void parse_file(Scene& scene, const std::string& path, const RenderHandler& on_render) {
    std::shared_ptr<mi::Source> source;
    try {
        source = mi::Source::open(path);
    } catch (const SceneError&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw SceneError(error.what());
    }
    mi::Parser(scene, on_render).run(std::move(source));
}

void parse_text(Scene& scene, std::string_view text, const std::string& name, const RenderHandler& on_render,
                const std::string& folder) {
    mi::Parser(scene, on_render).run(mi::Source::from_text(text, name, folder));
}

namespace mi {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t deepest_namespace = 64;

} // namespace

Parser::Parser(Scene& scene, const RenderHandler& on_render)
    : scene_(scene), on_render_(on_render),
      lexer_([this](const std::string& file, const std::string& folder, bool search) {
          return find_include(file, folder, search);
      }) {}

void Parser::run(std::shared_ptr<Source> source) {
    lexer_.push(std::move(source));
    while (lexer_.peek().kind != Kind::end) {
        statement();
        lexer_.release_finished();
    }
    if (!namespaces_.empty())
        fail(lexer_.peek(), "expected \"end namespace\" for the namespace \"" + namespaces_.back() + '"');
}

// ---- words ---------------------------------------------------------------------------------------

void Parser::fail_expected(const std::string& what) {
    const Token& found = lexer_.peek();
    fail(found, "expected " + what + ", found " + describe(found) + nearest_known().question('\''));
}

void Parser::fail_unknown(const std::string& where, const std::string& also) {
    const Token& found = lexer_.peek();
    const Nearest near = nearest_known();
    fail(found, "unknown statement " + describe(found) + " in " + where +
                    (near.found() ? near.question('\'')
                                  : "; expected " + known_words() + (also.empty() ? "" : " or " + also)));
}

bool Parser::sees(std::string_view word) {
    const Token& next = lexer_.peek();
    if (next.is(word))
        return true;
    if (known_at_ != next.at)
        known_.clear();
    known_at_ = next.at;
    known_.push_back(word);
    return false;
}

std::string Parser::known_words() {
    std::string list;
    for (auto word = known_.begin(); word != known_.end() && known_at_ == lexer_.peek().at; ++word)
        if (std::find(known_.begin(), word, *word) == word)
            list.append(list.empty() ? "" : ", ").append(*word);
    return list;
}

Nearest Parser::nearest_known() {
    const Token& next = lexer_.peek();
    Nearest near(next.text);
    if (next.kind == Kind::name && known_at_ == next.at)
        std::for_each(known_.begin(), known_.end(), [&](std::string_view word) { near.offer(word); });
    return near;
}

void Parser::warn(const Place& place, const std::string& message) {
    scene_.warnings.push_back(place.text() + ": " + message);
}

bool Parser::accept(std::string_view word) {
    if (!sees(word))
        return false;
    lexer_.next();
    return true;
}

bool Parser::accept(char sign) {
    if (!lexer_.peek().is(sign))
        return false;
    lexer_.next();
    return true;
}

void Parser::expect(std::string_view word) {
    if (!lexer_.peek().is(word))
        fail_expected('\'' + std::string(word) + '\'');
    lexer_.next();
}

void Parser::expect(char sign) {
    if (!accept(sign))
        fail_expected(std::string("'") + sign + '\'');
}

Token Parser::name(const char* what) {
    if (!at_name())
        fail_expected(what);
    return lexer_.next();
}

std::string Parser::text(const char* what) {
    return std::string(name(what).value);
}

bool Parser::on_off() {
    const bool other_on = lexer_.peek().is("true") || lexer_.peek().is("yes");
    const bool other_off = lexer_.peek().is("false") || lexer_.peek().is("no");
    const bool on = other_on || sees("on");
    if (!on && !other_off && !sees("off"))
        fail_expected("one of " + known_words());
    lexer_.next();
    return on;
}

bool Parser::optional_on_off() {
    for (const char* word : {"on", "true", "yes", "off", "false", "no"})
        if (lexer_.peek().is(word))
            return on_off();
    return true;
}

int Parser::integer(std::int64_t low, std::int64_t high) {
    return static_cast<int>(lexer_.to_integer(lexer_.next(), low, high));
}

float Parser::scalar() {
    return lexer_.to_float(lexer_.next());
}

miColor Parser::color(float default_alpha) {
    miColor c;
    c.r = scalar();
    c.g = scalar();
    c.b = scalar();
    c.a = at_number() ? scalar() : default_alpha;
    return c;
}

miVector Parser::vector() {
    miVector v;
    v.x = scalar();
    v.y = scalar();
    v.z = scalar();
    return v;
}

void Parser::matrix(miScalar* values) {
    std::generate_n(values, 16, [this] { return scalar(); });
}

int Parser::choice(std::span<const std::pair<std::string_view, int>> words) {
    for (const auto& [word, code] : words)
        if (accept(word))
            return code;
    fail_expected("one of " + known_words());
}

void Parser::end_of(std::string_view entity) {
    expect("end");
    expect(entity);
}

// ---- commands ------------------------------------------------------------------------------------

void Parser::statement() {
    incremental_ = accept("incremental");
    const Token first = lexer_.peek();
    if (entity(first) || (!incremental_ && command(first)))
        return;
    if (incremental_)
        fail_expected("an entity after 'incremental'");
    fail_unknown("a scene");
}

bool Parser::entity(const Token& word) {
    using Read = void (Parser::*)();
    static constexpr std::pair<std::string_view, Read> entities[] = {
        {"options", &Parser::options},
        {"camera", &Parser::camera},
        {"material", &Parser::material},
        {"light", &Parser::light},
        {"object", &Parser::object},
        {"instance", &Parser::instance},
        {"instgroup", &Parser::group},
        {"shader", &Parser::shader_element},
        {"data", &Parser::user_data},
        {"lightprofile", &Parser::light_profile},
        {"local", &Parser::texture},
        {"filter", &Parser::texture},
        {"writable", &Parser::texture},
        {"color", &Parser::texture},
        {"scalar", &Parser::texture},
        {"vector", &Parser::texture},
        {"colorprofile", &Parser::color_profile}};
    const auto* found = std::find_if(std::begin(entities), std::end(entities), [this](const auto& entry) {
        const bool of_frame = entry.second == &Parser::options || entry.second == &Parser::camera;
        return !(phenomenon_ && of_frame) && sees(entry.first);
    });
    if (found == std::end(entities)) {
        if (word.is("assembly") || word.is("map"))
            fail(word, '\'' + std::string(word.text) + "' is not supported");
        return false;
    }
    if (found->second != &Parser::texture) // a texture has words in front of its own
        lexer_.next();
    (this->*found->second)();
    return true;
}

bool Parser::command(const Token& word) {
    if (word.is("code"))
        fail(word, "shader source code in scenes is not supported: compile it to a library and use link");
    if (accept("link")) {
        link_library();
    } else if (accept("version")) {
        text("the version of the renderer as a string"); // says for whom the file was written
    } else if (accept("verbose")) {
        scene_.verbosity = at_number() ? integer(0, 100) : on_off() ? 5 : 0;
    } else if (accept("echo")) {
        const std::string message = text("the text to show");
        if (scene_.on_echo)
            scene_.on_echo(message);
        else
            std::puts(message.c_str());
    } else if (accept("memory")) {
        integer(0); // a limit for caches; nothing is kept that could be dropped
    } else if (accept("set")) {
        set_command();
    } else if (accept("namespace")) {
        open_namespace();
    } else if (accept("end")) {
        expect("namespace");
        if (namespaces_.empty())
            fail(word, "\"end namespace\" without a namespace");
        namespaces_.pop_back();
    } else if (accept("delete")) {
        delete_element();
    } else if (accept("declare")) {
        declare();
    } else if (accept("render")) {
        render();
    } else {
        return false;
    }
    return true;
}

void Parser::link_library() {
    const Token file = name("the name of a library");
    std::vector<std::string> folders{file.source->folder()};
    folders.insert(folders.end(), scene_.search_path.begin(), scene_.search_path.end());
    try {
        scene_.libraries->load(std::string(file.value), folders);
    } catch (const std::runtime_error& error) {
        fail(file, error.what());
    }
}

void Parser::open_namespace() {
    const Token word = name("the name of the namespace");
    if (word.value.empty())
        fail(word, "a namespace needs a name");
    if (namespaces_.size() >= deepest_namespace)
        fail(word, "namespaces are nested more than " + std::to_string(deepest_namespace) + " deep");
    namespaces_.emplace_back(word.value);
}

void Parser::delete_element() {
    const Token word = name("the name of an element");
    scene_.database.remove(resolve(word, "element"));
}

void Parser::set_command() {
    const Token word = name("the name of a setting");
    if (word.value != "search_path")
        fail(word, "unknown setting " + quoted(word) + ", expected \"search_path\"");
    const std::string folders = text("folders with ':' between them");
    for (std::size_t at = 0; at < folders.size();) {
        const std::size_t colon = std::min(folders.find(':', at), folders.size());
        if (colon > at)
            scene_.search_path.push_back(folders.substr(at, colon - at));
        at = colon + 1;
    }
}

void Parser::render() {
    RenderCommand command;
    const Token root = name("the name of the root group");
    command.place = place_of(root);
    command.root = resolve(root, miSCENE_GROUP, "instance group").tag;
    const Token camera = name("the name of the camera's instance");
    const Element& instance = resolve(camera, miSCENE_INSTANCE, "instance of a camera");
    if (!scene_.database.record<miCamera>(instance.as<miInstance>()->item, miSCENE_CAMERA))
        fail(camera, '"' + instance.name + "\" is no instance of a camera");
    command.camera_instance = instance.tag;
    command.options = resolve(name("the name of the options"), miSCENE_OPTIONS, "options element").tag;
    if (lexer_.peek().kind == Kind::string) {
        const Token inheritance = lexer_.next();
        command.inheritance = resolve(inheritance, miSCENE_FUNCTION, "inheritance shader").tag;
        warn(place_of(inheritance),
             quoted(inheritance) + ": inheritance shaders are not supported yet: it does not run");
    }
    check_root(root, command);
    lexer_.forget_pages();
    if (on_render_)
        on_render_(scene_, command);
}

// Groups within groups are a directed graph: it must have no cycle, and the camera must be in it.
void Parser::check_root(const Token& root, const RenderCommand& command) {
    constexpr std::size_t deepest = 1000;
    struct Level {
        const miGroup* group;
        miTag tag;
        int next;
    };
    const Database& database = scene_.database;
    std::vector<Level> path{{database.record<miGroup>(command.root, miSCENE_GROUP), command.root, 0}};
    std::unordered_set<miTag> done, active{command.root};
    bool camera = false;
    while (!path.empty()) {
        Level& level = path.back();
        if (level.next == level.group->no_kids) {
            active.erase(level.tag);
            done.insert(level.tag);
            path.pop_back();
            continue;
        }
        const miTag kid = level.group->kids[level.next++];
        camera = camera || kid == command.camera_instance;
        const auto* instance = database.record<miInstance>(kid, miSCENE_INSTANCE);
        const miTag item = instance ? instance->item : miNULLTAG;
        const auto* group = database.record<miGroup>(item, miSCENE_GROUP);
        if (!group || done.contains(item))
            continue;
        if (!active.insert(item).second)
            fail(root, "the group \"" + database.find(item)->name + "\" contains itself");
        if (path.size() >= deepest)
            fail(root, "groups are nested more than " + std::to_string(deepest) + " deep");
        path.push_back({group, item, 0});
    }
    if (!camera)
        fail(root, "the root group does not contain the camera's instance \"" +
                       database.find(command.camera_instance)->name + '"');
}

std::string Parser::find_include(const std::string& file, const std::string& folder, bool search) const {
    const fs::path path(file);
    std::vector<std::string> folders;
    if (path.is_absolute())
        folders.emplace_back();
    else if (!search)
        folders.push_back(folder);
    folders.insert(folders.end(), scene_.search_path.begin(), scene_.search_path.end());
    if (search)
        folders.push_back(folder);
    std::error_code ignored;
    for (const std::string& candidate : folders)
        if (const fs::path found = (fs::path(candidate) / path).lexically_normal();
            fs::exists(found, ignored))
            return found.string();
    std::string message = "cannot find the file \"" + file + "\"";
    for (std::size_t i = 0; i < folders.size() && !path.is_absolute(); ++i)
        message += (i == 0 ? "; looked in " : ", ") + folders[i];
    throw std::runtime_error(message);
}

std::string Parser::find_file(const std::string& file) const {
    try {
        return find_include(file, lexer_.source().folder(), false);
    } catch (const std::runtime_error&) {
        return {};
    }
}

// ---- elements by name ----------------------------------------------------------------------------

std::string Parser::qualified(const Token& name) const {
    if (name.value.starts_with("::"))
        return std::string(name.value.substr(2));
    std::string whole;
    for (const std::string& space : namespaces_)
        whole += space + "::";
    return whole.append(name.value);
}

Element* Parser::lookup(std::string_view name) const {
    if (name.starts_with("::"))
        return scene_.database.find(name.substr(2));
    for (const Phenomenon* at = phenomenon_; at; at = at->outer)
        if (const auto found = at->names.find(std::string(name)); found != at->names.end())
            return scene_.database.find(found->second);
    for (std::size_t levels = namespaces_.size(); levels > 0; --levels) {
        std::string whole;
        for (std::size_t i = 0; i < levels; ++i)
            whole += namespaces_[i] + "::";
        if (Element* found = scene_.database.find(whole.append(name)))
            return found;
    }
    return scene_.database.find(name);
}

std::string Parser::similar_name(std::string_view name, int type) const {
    Nearest near(name);
    for (const Phenomenon* in = phenomenon_; in; in = in->outer)
        for (const auto& [known, tag] : in->names)
            if (type == 0 || scene_.database.find(tag)->type == type)
                near.offer(known);
    for (miTag tag = 1; tag <= scene_.database.size(); ++tag) {
        const Element& element = *scene_.database.find(tag);
        if ((type == 0 || element.type == type) && scene_.database.find(element.name) == &element)
            near.offer(element.name);
    }
    return near.question();
}

Element& Parser::resolve(const Token& name, const char* what, int similar_type) {
    Element* element = lookup(name.value);
    if (!element)
        fail(name, std::string("there is no ") + what + ' ' + quoted(name) +
                       similar_name(name.value, similar_type));
    return *element;
}

Element& Parser::resolve(const Token& name, int type, const char* what) {
    Element& element = resolve(name, what, type);
    if (element.type != type)
        fail(name,
             '"' + std::string(name.value) + "\" (defined at " + element.place.text() + ") is no " + what);
    return element;
}

void Parser::check_new(const Token& name) const {
    if (name.value.empty())
        fail(name, "an element needs a name");
    const Element* known = nullptr;
    if (!phenomenon_)
        known = scene_.database.find(qualified(name));
    else if (const auto found = phenomenon_->names.find(std::string(name.value));
             found != phenomenon_->names.end())
        known = scene_.database.find(found->second);
    if (known)
        fail(name, '"' + std::string(name.value) + "\" is already defined at " + known->place.text() +
                       "; write 'incremental' in front to change it");
}

void Parser::give_name(Element& element, const Token& name) {
    if (!phenomenon_) {
        scene_.database.rename(element, qualified(name));
        return;
    }
    // Known within the phenomenon only; the name is for messages.
    phenomenon_->names[std::string(name.value)] = element.tag;
    element.name = phenomenon_->instance->name + '/' + std::string(name.value);
}

Element& Parser::define(const Token& name, int type, std::size_t size, const char* what) {
    if (incremental_)
        return resolve(name, type, what);
    check_new(name);
    Element& element = scene_.database.add(type, {}, place_of(name), size);
    give_name(element, name);
    return element;
}

miTag Parser::make_string(std::string_view text, const Place& place) {
    Element& element = scene_.database.add(miSCENE_STRING, {}, place, text.size() + 1);
    std::memcpy(element.record, text.data(), text.size());
    return element.tag;
}

miTag Parser::make_tags(const std::vector<miTag>& tags, const Place& place) {
    Element& element = scene_.database.add(miSCENE_TAGS, {}, place, tags.size() * sizeof(miTag));
    std::copy(tags.begin(), tags.end(), element.as<miTag>());
    return element.tag;
}

void Parser::chain(const std::vector<std::pair<Token, miTag>>& items, std::uint64_t owner, const char* what) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        const auto& [token, tag] = items[i];
        const miTag next = i + 1 < items.size() ? items[i + 1].second : miNULLTAG;
        for (std::size_t k = 0; k < i; ++k)
            if (items[k].second == tag)
                fail(token, std::string("the ") + what + " is in the list already");
        const auto [link, added] = links_.try_emplace(tag, Link{next, owner});
        if (!added && link->second.next != next && link->second.owner != owner)
            fail(token, std::string("the ") + what +
                            " is in another list already, where a different one follows it");
        link->second = {next, owner};
        Element& element = *scene_.database.find(tag);
        if (element.type == miSCENE_FUNCTION)
            element.as<miFunction>()->next_function = next;
        else
            element.as<miUserdata>()->next_data = next;
    }
}

} // namespace mi
} // namespace stage
