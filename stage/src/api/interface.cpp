// The interface object: the camera's named frame buffers and lists of lights for shader libraries.
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "api/api.h"
#include "api/light_list.h"
#include "image/framebuffer.h"

namespace {

using stage::FramebufferDesc;

template <class Value> struct Named {
    std::string_view name;
    Value FramebufferDesc::*member;
};

constexpr std::array flags = {
    Named<bool>{"filtering", &FramebufferDesc::filtering},
    Named<bool>{"premultiplied", &FramebufferDesc::premultiplied},
    Named<bool>{"primary", &FramebufferDesc::primary},
    Named<bool>{"user", &FramebufferDesc::user},
    Named<bool>{"useopacity", &FramebufferDesc::useopacity},
    Named<bool>{"tiled", &FramebufferDesc::tiled},
    Named<bool>{"dod", &FramebufferDesc::dod},
};
constexpr std::array integers = {
    Named<int>{"quality", &FramebufferDesc::quality},
    Named<int>{"dpi", &FramebufferDesc::dpi},
};
constexpr std::array texts = {
    Named<std::string>{"datatype", &FramebufferDesc::datatype},
    Named<std::string>{"filename", &FramebufferDesc::filename},
    Named<std::string>{"filetype", &FramebufferDesc::filetype},
    Named<std::string>{"compression", &FramebufferDesc::compression},
    Named<std::string>{"colorprofile", &FramebufferDesc::colorprofile},
    Named<std::string>{"field", &FramebufferDesc::field},
};

// The member that a parameter names, or null.
template <class Table> auto member_of(const Table& table, const char* param) {
    for (const auto& row : table)
        if (param && row.name == param)
            return row.member;
    return decltype(table[0].member)(nullptr);
}

// As a line of the scene language; what is as usual is left out.
std::string statement_of(const FramebufferDesc& desc) {
    const FramebufferDesc usual;
    std::string line = "framebuffer \"" + desc.name + '"';
    for (const auto& text : texts)
        if (!(desc.*text.member).empty())
            line.append(" ").append(text.name).append(" \"").append(desc.*text.member).append("\"");
    for (const auto& number : integers)
        if (desc.*number.member != usual.*number.member)
            line.append(" ").append(number.name).append(" ").append(std::to_string(desc.*number.member));
    for (const auto& flag : flags)
        line.append(" ").append(flag.name).append(desc.*flag.member ? " on" : " off");
    return line + '\n';
}

// The buffers of one camera. While a frame of that camera is rendered the renderer's own list counts, as its
// numbers are those of mi_fb_put.
class Buffers final : public mi::shader_v3::Framebuffer {
public:
    explicit Buffers(stage::Element& element) : element_(element) {}

    bool get_index(const char* buffer, size_t& index) override {
        for (std::size_t i = 0; buffer && i < count(); ++i)
            if (desc(i).name == buffer) {
                index = i;
                return true;
            }
        return false;
    }
    bool get_buffercount(size_t& result) override {
        result = count();
        return true;
    }
    bool get_buffername(size_t number, const char*& name) override {
        if (number >= count())
            return false;
        name = desc(number).name.c_str();
        return true;
    }
    bool get_datatype(size_t number, miImg_type& type) override {
        if (number >= count())
            return false;
        const stage::FrameBufferType* found = stage::find_framebuffer_type(desc(number).datatype);
        if (found)
            type = found->type;
        return found != nullptr;
    }
    bool map_old_index(unsigned old_index, int& index) override {
        if (old_index >= count())
            return false;
        index = static_cast<int>(old_index);
        return true;
    }

    bool set(const char* buffer, const char* param, bool value) override {
        return store(buffer, flags, param, value);
    }
    bool set(const char*, const char*, float) override { return false; } // no buffer has such a parameter
    bool set(const char* buffer, const char* param, int value) override {
        return store(buffer, integers, param, value);
    }
    bool set(const char* buffer, const char* param, const char* value) override {
        return value && store(buffer, texts, param, value);
    }
    bool get(const char* buffer, const char* param, bool& value) override {
        return fetch(buffer, flags, param, value);
    }
    bool get(const char*, const char*, float&) override { return false; }
    bool get(const char* buffer, const char* param, int& value) override {
        return fetch(buffer, integers, param, value);
    }
    bool get(const char* buffer, const char* param, const char*& value) override {
        size_t index;
        const auto member = member_of(texts, param);
        if (!member || !get_index(buffer, index))
            return false;
        value = (desc(index).*member).c_str();
        return true;
    }

    bool remove(const char* buffer) override {
        return buffer && !stage::current_renderer() &&
               std::erase_if(element_.framebuffers,
                             [&](const FramebufferDesc& desc) { return desc.name == buffer; }) > 0;
    }
    bool reset() override {
        if (stage::current_renderer())
            return false;
        element_.framebuffers.clear();
        return true;
    }
    void echo(FILE* file) override {
        for (std::size_t i = 0; file && i < count(); ++i)
            std::fputs(statement_of(desc(i)).c_str(), file);
    }

private:
    // The renderer, when it renders with these buffers.
    const stage::Renderer* renderer() const {
        const stage::Renderer* current = stage::current_renderer();
        const bool ours =
            current && current->world().camera && current->world().camera->framebuffers == element_.tag;
        return ours ? current : nullptr;
    }
    std::size_t count() const {
        return renderer() ? renderer()->buffers().size() : element_.framebuffers.size();
    }
    const FramebufferDesc& desc(std::size_t index) const {
        return renderer() ? renderer()->buffers()[index].desc : element_.framebuffers[index];
    }

    // Buffers are laid out when a frame starts: until it ends they stay as they are.
    template <class Table, class Value>
    bool store(const char* buffer, const Table& table, const char* param, const Value& value) {
        const auto member = member_of(table, param);
        if (!member || !buffer || stage::current_renderer())
            return false;
        for (FramebufferDesc& candidate : element_.framebuffers)
            if (candidate.name == buffer) {
                candidate.*member = value;
                return true;
            }
        return false;
    }
    template <class Table, class Value>
    bool fetch(const char* buffer, const Table& table, const char* param, Value& value) {
        size_t index;
        const auto member = member_of(table, param);
        if (!member || !get_index(buffer, index))
            return false;
        value = desc(index).*member;
        return true;
    }

    stage::Element& element_;
};

// Holds nothing, so that one object serves everybody and releasing it does nothing.
class Interface final : public mi::shader_v3::Interface {
public:
    mi::shader_v3::Framebuffer* accessFramebuffer(miTag framebuffers) override {
        const stage::Scene* scene = stage::current_scene();
        stage::Element* element = scene ? scene->database.find(framebuffers) : nullptr;
        return element && element->type == miSCENE_FRAMEBUFFERS ? new Buffers(*element) : nullptr;
    }
    void releaseFramebuffer(mi::shader_v3::Framebuffer* framebuffers) override {
        delete static_cast<Buffers*>(framebuffers);
    }
    void release() override {}
    miImg_image* open_output_image(miState*, int index) override {
        stage::Renderer* renderer = stage::current_renderer();
        return renderer ? renderer->open_output_image(index) : nullptr;
    }
    void close_output_image(miState*, int index) override {
        if (stage::Renderer* renderer = stage::current_renderer())
            renderer->close_output_image(index);
    }
    mi::shader_v3::LightList* createLightList(miState* state, miTag* list, int n) override {
        return stage::light_list_of(state, list, n, nullptr);
    }
    mi::shader_v3::LightList* createLightList(miState* state, const miVector& axis, miScalar cone_cosine,
                                              miTag* list, int n) override {
        const stage::LightCone cone{axis, cone_cosine};
        return stage::light_list_of(state, list, n, &cone);
    }
    void releaseLightList(mi::shader_v3::LightList*) override {} // goes with the shader's other memory
};

} // namespace

// The object of version 3, which is all there is; null for other versions.
STAGE_API miShader_interface* mi_get_shader_interface(int version) {
    static Interface object;
    return version == miSHADER_INTERFACE ? &object : nullptr;
}
