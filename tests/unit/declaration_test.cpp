// The declaration tables: what is written from them must be a valid declaration.
#include "exports.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using namespace orl;

void check_fields(const std::string& owner, const decl::FieldList& fields) {
    std::set<std::string> names;
    for (const decl::Field& field : fields) {
        EXPECT_TRUE(names.insert(field.name).second) << owner << ": two parameters " << field.name;
        EXPECT_STRNE(field.help, "") << owner << ' ' << field.name;
        EXPECT_LE(field.range.lowest, field.range.highest) << owner << ' ' << field.name;
        for (int i = 0; i < field.value.count; ++i) {
            EXPECT_GE(field.value.number[i], field.range.lowest) << owner << ' ' << field.name;
            EXPECT_LE(field.value.number[i], field.range.highest) << owner << ' ' << field.name;
        }
    }
}

TEST(Declarations, AreComplete) {
    std::set<std::string> names;
    for (const Unit& unit : units)
        for (const decl::Shader& shader : unit.shaders) {
            EXPECT_TRUE(names.insert(shader.name).second) << shader.name << " is declared twice";
            EXPECT_STRNE(shader.help, "") << shader.name;
            EXPECT_GE(shader.version, 1) << shader.name;
            EXPECT_NE(shader.apply, 0u) << shader.name;
            check_fields(shader.name, shader.fields);
        }
    for (const decl::Data& data : host_data)
        check_fields(data.name, data.fields);
}

} // namespace
