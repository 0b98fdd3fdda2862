// Places, errors, and the life of a scene.
#include "scene/scene.h"

#include <algorithm>

#include "scene/libraries.h"

namespace stage {

namespace {

// The part of a long line that is shown around the mistake, in bytes.
constexpr std::size_t excerpt_size = 160;

// The offending line with a caret below the column. Bytes that a terminal might obey or that are no ASCII are
// shown as '?', tabs stay so that the caret stands right.
std::string excerpt(std::string_view line, int column) {
    const std::size_t at = std::min(static_cast<std::size_t>(std::max(column, 1) - 1), line.size());
    const std::size_t first = at > excerpt_size / 2 && line.size() > excerpt_size ? at - excerpt_size / 2 : 0;
    const std::string_view shown = line.substr(first, excerpt_size);
    std::string text = "\n";
    std::string below = "\n";
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const char c = shown[i];
        text += c == '\t' || (c >= ' ' && c < 127) ? c : '?';
        if (first + i < at)
            below += c == '\t' ? '\t' : ' ';
    }
    return text + below + '^';
}

std::string report(const Place& place, const std::string& message, std::string_view source_line) {
    std::string text = place.text() + ": " + message;
    if (!source_line.empty())
        text += excerpt(source_line, place.column);
    return text;
}

} // namespace

std::string Place::text() const {
    if (!file || file->empty())
        return "(built in)";
    return *file + ':' + std::to_string(line) + ':' + std::to_string(column);
}

SceneError::SceneError(const Place& place, const std::string& message, std::string_view source_line)
    : std::runtime_error(report(place, message, source_line)) {}

SceneError::SceneError(const SceneError& error, const std::string& note)
    : std::runtime_error(std::string(error.what()) + '\n' + note) {}

Scene::Scene() : libraries(std::make_unique<LibrarySet>()) {}
Scene::~Scene() = default;

Element& parameter_holder(const Database& database, Element& element) {
    const miTag indirect = element.as<miFunction>()->parameter_indirect;
    Element* holder = indirect ? database.find(indirect) : nullptr;
    return holder && holder->type == miSCENE_FUNCTION && holder->shader ? *holder : element;
}

void Scene::exit_shaders(const miState* prototype) {
    std::vector<miTag> order;
    {
        const std::lock_guard lock(init_guard);
        order.swap(init_order);
    }
    miState state{};
    if (prototype)
        state = *prototype;
    else
        state.version = 2;

    std::vector<std::pair<ShaderCode*, miFunction*>> codes; // with the first instance that was called
    for (const miTag tag : order) {
        Element* element = database.find(tag);
        ShaderCode* shader_code = element && element->shader ? element->shader->code : nullptr;
        if (shader_code &&
            std::none_of(codes.begin(), codes.end(), [&](const auto& c) { return c.first == shader_code; }))
            codes.emplace_back(shader_code, element->as<miFunction>());
    }
    for (auto tag = order.rbegin(); tag != order.rend(); ++tag) {
        Element* element = database.find(*tag);
        if (!element || !element->shader || !element->shader->initialised.exchange(false))
            continue;
        state.shader = element->as<miFunction>();
        if (element->shader->code && element->shader->code->exit)
            element->shader->code->exit(&state,
                                        parameter_holder(database, *element).as<miFunction>()->parameters);
        element->shader->user = nullptr;
        element->shader->thread_user.assign(element->shader->thread_user.size(), nullptr);
    }
    for (auto c = codes.rbegin(); c != codes.rend(); ++c) {
        if (!c->first->initialised.exchange(false))
            continue;
        state.shader = c->second;
        if (c->first->exit)
            c->first->exit(&state, nullptr);
        c->first->wants_instance_init = false;
    }
}

} // namespace stage
