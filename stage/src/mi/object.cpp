// Polygon objects. Most of a scene's text is here, so this is written for speed: numbers go straight from the
// text into flat arrays, and a word is only made where the text shows something unusual.
#include <array>
#include <cstring>
#include <limits>

#include "mi/parser_impl.h"
#include "scene/triangulate.h"

namespace stage::mi {

namespace {

constexpr int most_texture_spaces = 64;
constexpr std::size_t most_data_words = 64;
constexpr std::size_t most_corners = 20000; // of a polygon that has to be cut: the time grows with the square

constexpr std::uint32_t absent = std::numeric_limits<std::uint32_t>::max();

// The vectors that one vertex refers to.
struct Corner {
    std::uint32_t point = absent, normal = absent, motion = absent;
    int textures = 0;
    std::array<std::uint32_t, most_texture_spaces> texture{};
    std::array<std::uint32_t, most_texture_spaces> bump_x{}, bump_y{};
    int bumps = 0; // texture spaces with basis vectors, always the first ones

    [[nodiscard]] bool same_parts(const Corner& other) const {
        return (normal == absent) == (other.normal == absent) &&
               (motion == absent) == (other.motion == absent) && textures == other.textures &&
               bumps == other.bumps;
    }
};

} // namespace

// Reads the groups of one object into its geometry.
class ObjectReader {
public:
    using FindMaterial = std::function<miTag(const Token&)>;
    ObjectReader(Lexer& lexer, Geometry& geometry, bool tagged, FindMaterial find_material)
        : lexer_(lexer), geometry_(geometry), tagged_(tagged), find_material_(std::move(find_material)) {}

    void group();
    void finish();

private:
    void vertices();
    void vertex();
    std::uint32_t vector_index(const char* what);
    void texture_space();
    void lay_out();
    void add_vertex();
    void copy_vector(float* to, std::uint32_t vector) const {
        std::memcpy(to, vectors_.data() + std::size_t{vector} * 3, 3 * sizeof(float));
    }
    void polygons();
    void polygon(bool convex);
    void corners(Outline& outline);
    void read_material();
    void read_data();
    void add_triangles(bool convex);
    void add_attributes(std::size_t triangles);

    Lexer& lexer_;
    Geometry& geometry_;
    bool tagged_;
    FindMaterial find_material_;

    std::vector<float> vectors_; // of the group
    Corner corner_;              // being read
    Corner first_;               // of the object: every vertex has the same parts
    std::size_t stride_ = 0;     // floats of a vertex, 0 before the first one
    std::size_t base_ = 0;       // vertices of earlier groups
    std::size_t count_ = 0;      // vertices so far

    std::vector<Outline> outlines_; // the polygon being read; its first `outline_count_` ones
    std::size_t outline_count_ = 0;
    std::vector<std::uint32_t> cut_;
    miTag material_ = miNULLTAG; // of the latest polygon, or its label
    std::string material_name_;
    std::size_t triangles_ = 0;
    std::vector<miUint> words_; // data of the latest polygon
    bool any_polygon_ = false;
};

void ObjectReader::group() {
    vectors_.clear();
    lexer_.read_numbers(vectors_);
    if (vectors_.size() % 3 != 0)
        lexer_.fail(lexer_.peek(), "the vectors of the group are " + std::to_string(vectors_.size()) +
                                       " numbers, which is no multiple of 3, and end before " +
                                       describe(lexer_.peek()));
    base_ = count_;
    vertices();
    polygons();
    if (lexer_.peek().kind == Token::Kind::end || !lexer_.peek().is("end"))
        lexer_.fail(lexer_.peek(), "expected a vertex (v), a polygon (c, cp, p) or 'end group', found " +
                                       describe(lexer_.peek()));
}

// ---- vertices ------------------------------------------------------------------------------------

void ObjectReader::vertices() {
    while (lexer_.take_word("v"))
        vertex();
}

void ObjectReader::vertex() {
    corner_.point = vector_index("point");
    corner_.normal = corner_.motion = absent;
    corner_.textures = corner_.bumps = 0;
    for (;;) {
        if (lexer_.take_word("n"))
            corner_.normal = vector_index("normal");
        else if (lexer_.take_word("t"))
            texture_space();
        else if (lexer_.take_word("m"))
            corner_.motion = vector_index("motion vector");
        else
            break;
    }
    if (stride_ == 0)
        lay_out();
    else if (!corner_.same_parts(first_))
        lexer_.fail_last(
            "this vertex has other parts than the object's first one; normals, motion vectors, texture "
            "spaces and bump basis vectors must be the same for all");
    add_vertex();
}

std::uint32_t ObjectReader::vector_index(const char* what) {
    std::uint32_t index = 0;
    if (!lexer_.take_index(index))
        lexer_.fail(lexer_.peek(),
                    std::string("expected the index of a ") + what + ", found " + describe(lexer_.peek()));
    if (std::size_t{index} * 3 >= vectors_.size())
        lexer_.fail_last("there is no vector " + std::to_string(index) + ": the group has " +
                         std::to_string(vectors_.size() / 3));
    return index;
}

// `t k [x i y j]`
void ObjectReader::texture_space() {
    if (corner_.textures == most_texture_spaces)
        lexer_.fail_last("a vertex has at most " + std::to_string(most_texture_spaces) + " texture spaces");
    const auto space = static_cast<std::size_t>(corner_.textures++);
    corner_.texture[space] = vector_index("texture coordinate");
    if (!lexer_.take_word("x"))
        return;
    if (corner_.bumps != corner_.textures - 1)
        lexer_.fail_last("texture spaces with bump basis vectors must come before those without");
    corner_.bump_x[space] = vector_index("bump basis vector");
    if (!lexer_.take_word("y"))
        lexer_.fail(lexer_.peek(),
                    "expected y and the second bump basis vector, found " + describe(lexer_.peek()));
    corner_.bump_y[space] = vector_index("bump basis vector");
    ++corner_.bumps;
}

void ObjectReader::lay_out() {
    first_ = corner_;
    miTriangles& view = geometry_.view;
    int offset = 3;
    const auto take = [&](bool present, int floats) {
        const int at = present ? offset : -1;
        offset += present ? floats : 0;
        return at;
    };
    view.normal_offset = take(corner_.normal != absent, 3);
    view.motion_offset = take(corner_.motion != absent, 3);
    view.texture_count = corner_.textures;
    view.texture_offset = take(corner_.textures > 0, 3 * corner_.textures);
    view.bump_count = corner_.bumps;
    view.bump_offset = take(corner_.bumps > 0, 6 * corner_.bumps);
    view.vertex_stride = offset;
    stride_ = static_cast<std::size_t>(offset);
}

void ObjectReader::add_vertex() {
    std::vector<float>& all = geometry_.vertices;
    const std::size_t at = all.size();
    all.resize(at + stride_);
    float* to = all.data() + at;
    copy_vector(to, corner_.point);
    const miTriangles& view = geometry_.view;
    if (view.normal_offset >= 0)
        copy_vector(to + view.normal_offset, corner_.normal);
    if (view.motion_offset >= 0)
        copy_vector(to + view.motion_offset, corner_.motion);
    for (int k = 0; k < corner_.textures; ++k)
        copy_vector(to + view.texture_offset + 3 * k, corner_.texture[static_cast<std::size_t>(k)]);
    for (int k = 0; k < corner_.bumps; ++k) {
        copy_vector(to + view.bump_offset + 6 * k, corner_.bump_x[static_cast<std::size_t>(k)]);
        copy_vector(to + view.bump_offset + 6 * k + 3, corner_.bump_y[static_cast<std::size_t>(k)]);
    }
    ++count_;
}

// ---- polygons ------------------------------------------------------------------------------------

void ObjectReader::polygons() {
    for (;;) {
        if (lexer_.take_word("p"))
            polygon(false);
        else if (lexer_.take_word("c") || lexer_.take_word("cp"))
            polygon(true);
        else
            return;
    }
}

void ObjectReader::polygon(bool convex) {
    read_material();
    outline_count_ = 0;
    do {
        if (outline_count_ == outlines_.size())
            outlines_.emplace_back();
        corners(outlines_[outline_count_++]);
    } while (lexer_.take_word("hole"));
    if (convex && outline_count_ > 1)
        lexer_.fail_last("a convex polygon has no holes: write p instead of c");
    if (lexer_.take_word("data"))
        read_data();
    else if (geometry_.view.data_count > 0)
        lexer_.fail(lexer_.peek(),
                    "expected the polygon's data words, which the object's first polygon has, found " +
                        describe(lexer_.peek()));
    add_triangles(convex);
    any_polygon_ = true;
}

// Without a material a polygon has that of the one before.
void ObjectReader::read_material() {
    if (tagged_) {
        std::uint32_t label = 0;
        if (!lexer_.take_index(label))
            lexer_.fail(lexer_.peek(),
                        "expected the label of the polygon, since the object is tagged, found " +
                            describe(lexer_.peek()));
        material_ = label;
        return;
    }
    if (lexer_.at_digit() || lexer_.peek().kind == Token::Kind::number)
        return;
    const Token& word = lexer_.peek();
    if (word.kind != Token::Kind::string && word.kind != Token::Kind::name)
        lexer_.fail(word, "expected a material or the index of a vertex, found " + describe(word));
    const Token name = lexer_.next();
    if (any_polygon_ && name.value == material_name_)
        return;
    material_name_ = name.value;
    material_ = find_material_(name);
}

void ObjectReader::corners(Outline& outline) {
    outline.clear();
    const std::size_t available = count_ - base_;
    for (std::uint32_t index = 0; lexer_.take_index(index);) {
        if (index >= available)
            lexer_.fail_last("there is no vertex " + std::to_string(index) + ": the group has " +
                             std::to_string(available));
        outline.push_back(static_cast<std::uint32_t>(base_ + index));
    }
    if (outline.size() < 3)
        lexer_.fail(lexer_.peek(), "a polygon needs at least 3 vertices, expected one more, found " +
                                       describe(lexer_.peek()));
}

void ObjectReader::read_data() {
    words_.clear();
    for (;;) {
        std::uint32_t word = 0;
        if (lexer_.at_digit() && lexer_.take_index(word))
            words_.push_back(word);
        else if (lexer_.peek().kind == Token::Kind::number)
            words_.push_back(static_cast<miUint>(lexer_.to_integer(lexer_.next(), INT32_MIN, UINT32_MAX)));
        else
            break;
        if (words_.size() > most_data_words)
            lexer_.fail_last("a polygon has at most " + std::to_string(most_data_words) + " data words");
    }
    if (words_.empty())
        lexer_.fail(lexer_.peek(), "expected the polygon's data words, found " + describe(lexer_.peek()));
    const auto count = static_cast<int>(words_.size());
    if (any_polygon_ && count != geometry_.view.data_count)
        lexer_.fail_last("every polygon of an object must have as many data words as the first, " +
                         std::to_string(geometry_.view.data_count));
    geometry_.view.data_count = count;
}

void ObjectReader::add_triangles(bool convex) {
    const std::size_t before = geometry_.indices.size();
    const Outline& border = outlines_.front();
    if (border.size() == 3 && outline_count_ == 1) {
        geometry_.indices.insert(geometry_.indices.end(), border.begin(), border.end());
    } else if (convex) {
        for (std::size_t k = 2; k < border.size(); ++k)
            geometry_.indices.insert(geometry_.indices.end(), {border[0], border[k - 1], border[k]});
    } else {
        std::size_t all = 0;
        for (std::size_t k = 0; k < outline_count_; ++k)
            all += outlines_[k].size() + 2;
        if (all > most_corners)
            lexer_.fail_last("a polygon with more than " + std::to_string(most_corners) + " corners");
        cut_.clear();
        triangulate({outlines_.data(), outline_count_}, geometry_.vertices.data(), stride_, cut_);
        geometry_.indices.insert(geometry_.indices.end(), cut_.begin(), cut_.end());
    }
    add_attributes((geometry_.indices.size() - before) / 3);
}

// The list of materials is only made when there is more than one.
void ObjectReader::add_attributes(std::size_t triangles) {
    if (!any_polygon_)
        geometry_.view.material = material_;
    if (geometry_.materials.empty() && material_ != geometry_.view.material)
        geometry_.materials.assign(triangles_, geometry_.view.material);
    if (material_ != geometry_.view.material || !geometry_.materials.empty())
        geometry_.materials.insert(geometry_.materials.end(), triangles, material_);
    if (geometry_.view.data_count > 0)
        for (std::size_t k = 0; k < triangles; ++k)
            geometry_.data.insert(geometry_.data.end(), words_.begin(), words_.end());
    triangles_ += triangles;
}

void ObjectReader::finish() {
    miTriangles& view = geometry_.view;
    geometry_.vertices.shrink_to_fit();
    geometry_.indices.shrink_to_fit();
    view.triangle_count = static_cast<miUint>(triangles_);
    view.vertex_count = static_cast<miUint>(count_);
    view.vertices = geometry_.vertices.data();
    view.indices = geometry_.indices.data();
    view.materials = geometry_.materials.empty() ? nullptr : geometry_.materials.data();
    view.data = geometry_.data.empty() ? nullptr : geometry_.data.data();
}

namespace {

void add_to_box(miObject& o, const miVector& p) {
    mi_vector_min(&o.bbox_min, &o.bbox_min, &p);
    mi_vector_max(&o.bbox_max, &o.bbox_max, &p);
}

void measure(miObject& o, const Geometry& geometry) {
    constexpr float huge = std::numeric_limits<float>::max();
    o.bbox_min = {huge, huge, huge};
    o.bbox_max = {-huge, -huge, -huge};
    const auto stride = static_cast<std::size_t>(geometry.view.vertex_stride);
    for (std::size_t at = 0; at < geometry.vertices.size(); at += stride)
        add_to_box(o, {geometry.vertices[at], geometry.vertices[at + 1], geometry.vertices[at + 2]});
    if (geometry.vertices.empty())
        o.bbox_min = o.bbox_max = {0.0f, 0.0f, 0.0f};
}

} // namespace

void Parser::object() {
    const Token word = name("the name of the object");
    Element& element = define(word, miSCENE_OBJECT, sizeof(miObject), "object");
    auto& o = *element.as<miObject>();
    if (!incremental_) {
        o.visible = o.trace = 1;
        o.shadow = o.reflection = o.refraction = o.transparency = o.caustic = o.globillum = o.finalgather = 3;
        element.geometry = std::make_unique<Geometry>();
        o.triangles = &element.geometry->view;
        o.triangles->normal_offset = o.triangles->motion_offset = -1;
        o.triangles->texture_offset = o.triangles->bump_offset = -1;
    }
    std::vector<std::pair<Token, miTag>> data;
    std::unique_ptr<Geometry> geometry;
    std::unique_ptr<ObjectReader> reader;
    while (!sees("end")) {
        if (accept("group")) {
            if (!geometry) {
                geometry = std::make_unique<Geometry>();
                geometry->view.normal_offset = geometry->view.motion_offset = -1;
                geometry->view.texture_offset = geometry->view.bump_offset = -1;
                reader = std::make_unique<ObjectReader>(
                    lexer_, *geometry, o.tagged != 0,
                    [this](const Token& token) { return object_material(token); });
            }
            reader->group();
            end_of("group");
        } else if (accept("data")) {
            attach_data(data, o.userdata);
        } else {
            object_flag(o, reader != nullptr);
        }
    }
    if (reader) {
        reader->finish();
        element.geometry = std::move(geometry);
        o.triangles = &element.geometry->view;
        measure(o, *element.geometry);
    }
    chain(data, owner(element, Slot::data), "data block");
    end_of("object");
}

miTag Parser::object_material(const Token& word) {
    const Element& element = resolve(word, "material");
    if (element.shader && scene_.database.record<miMaterial>(element.shader->root, miSCENE_MATERIAL))
        return element.shader->root;
    return resolve(word, miSCENE_MATERIAL, "material").tag;
}

bool Parser::object_switch(miObject& o) {
    static const std::pair<const char*, miUint1 miObject::*> flags[] = {
        {"visible", &miObject::visible}, {"trace", &miObject::trace}, {"select", &miObject::select}};
    static const std::pair<const char*, miUint1 miObject::*> modes[] = {
        {"reflection", &miObject::reflection},     {"refraction", &miObject::refraction},
        {"transparency", &miObject::transparency}, {"caustic", &miObject::caustic},
        {"globillum", &miObject::globillum},       {"finalgather", &miObject::finalgather}};
    for (const auto& [word, flag] : flags) {
        if (accept(word)) {
            o.*flag = optional_on_off() ? 1 : 0;
            return true;
        }
    }
    for (const auto& [word, flag] : modes) {
        if (accept(word)) {
            o.*flag = mode(3);
            return true;
        }
    }
    return false;
}

// Boxes are for geometry that is made later: here they stand for objects without groups.
bool Parser::object_box(miObject& o) {
    if (accept("motion")) { // the box around the moving object, which nothing needs
        expect("box");
        vector();
        vector();
        return true;
    }
    if (!accept("box"))
        return false;
    o.bbox_min = vector();
    o.bbox_max = vector();
    return true;
}

void Parser::object_flag(miObject& o, bool has_group) {
    const Token at = lexer_.peek();
    if (accept("shadow")) {
        o.shadow = shadow_mode();
    } else if (accept("shadowmap")) {
        optional_on_off(); // of lights with shadow maps, which tell that they have none
    } else if (accept("falloff")) {
        o.falloff.min = scalar();
        o.falloff.max = scalar();
        if (!(o.falloff.min >= 0.0f && o.falloff.min <= o.falloff.max))
            fail(at, "the falloff of rays needs a start from 0 and a stop that is not below it");
    } else if (lexer_.peek().is("finalgather") && lexer_.following() == 'f') {
        lexer_.next();
        expect("file");
        const Token file = name("a file name");
        o.finalgather_file = make_string(file.value, place_of(file));
    } else if (object_switch(o) || object_box(o)) {
        return;
    } else if (accept("tagged")) {
        if (has_group)
            fail(at, "'tagged' must stand in front of the groups");
        o.tagged = optional_on_off() ? 1 : 0;
    } else if (accept("face")) {
        o.face = static_cast<miUint1>(choice({{"front", 'f'}, {"back", 'b'}, {"both", 'a'}}));
    } else if (accept("tag")) {
        o.label = static_cast<miUint>(lexer_.to_integer(lexer_.next(), 0, UINT32_MAX));
    } else {
        fail_unknown("an object");
    }
}

} // namespace stage::mi
