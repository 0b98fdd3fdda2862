// The database: tags, names, records that change their size.
#include <gtest/gtest.h>

#include "scene/scene.h"

namespace stage {
namespace {

TEST(Database, TagsNamesAndRecords) {
    Database database;
    Element &a = database.add(miSCENE_OPTIONS, "a", {}, 12), &b = database.add(miSCENE_MATERIAL, "", {}, 64);
    EXPECT_EQ(database.find(a.tag), &a);
    EXPECT_EQ(database.find(std::string_view("a")), &a);
    EXPECT_EQ(database.find(std::string_view("")), nullptr);
    EXPECT_EQ(database.find(miTag{0}), nullptr);
    EXPECT_EQ(database.find(miTag{3}), nullptr);
    EXPECT_EQ(database.record<miMaterial>(b.tag, miSCENE_MATERIAL), b.record);
    EXPECT_EQ(database.record<miMaterial>(a.tag, miSCENE_MATERIAL), nullptr);
    static_cast<char*>(a.record)[11] = 7;
    database.resize(a, 4000);
    EXPECT_EQ(static_cast<char*>(a.record)[11], 7);
    EXPECT_EQ(static_cast<char*>(a.record)[12], 0);

    database.remove(a); // its name is free, its tag stays
    Element& other = database.add(miSCENE_OPTIONS, "a", {}, 4);
    database.remove(a); // must not take the new one's name
    EXPECT_EQ(database.find(std::string_view("a")), &other);
    EXPECT_EQ(database.find(a.tag), &a);
}

} // namespace
} // namespace stage
