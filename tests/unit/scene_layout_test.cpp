// The database: tags, names, records that change their size, readers beside a writer.
#include <thread>

#include <gtest/gtest.h>

#include "scene/scene.h"

namespace stage {
namespace {

TEST(Database, TagsNamesAndRecords) {
    Database database;
    Element& a = database.add(miSCENE_OPTIONS, "a", {}, 12);
    Element& b = database.add(miSCENE_MATERIAL, "", {}, sizeof(miMaterial));
    EXPECT_EQ(a.tag, 1u);
    EXPECT_EQ(b.tag, 2u);
    EXPECT_EQ(database.find(std::string_view("a")), &a);
    EXPECT_EQ(database.find(std::string_view("")), nullptr);
    EXPECT_EQ(database.find(miTag{0}), nullptr);
    EXPECT_EQ(database.find(miTag{3}), nullptr);
    EXPECT_EQ(database.record<miMaterial>(2, miSCENE_MATERIAL), b.record);
    EXPECT_EQ(database.record<miMaterial>(1, miSCENE_MATERIAL), nullptr);

    static_cast<char*>(a.record)[11] = 7;
    database.resize(a, 4000);
    EXPECT_EQ(static_cast<char*>(a.record)[11], 7);
    EXPECT_EQ(static_cast<char*>(a.record)[12], 0);
    EXPECT_EQ(a.size, 4000u);
}

TEST(Database, ARemovedNameIsFreeAndItsTagStays) {
    Database database;
    Element& old = database.add(miSCENE_OPTIONS, "a", {}, 4);
    database.remove(old);
    EXPECT_EQ(database.find(std::string_view("a")), nullptr);
    Element& other = database.add(miSCENE_OPTIONS, "a", {}, 4);
    database.remove(old); // must not take the new one's name
    EXPECT_EQ(database.find(std::string_view("a")), &other);
    EXPECT_EQ(database.find(old.tag), &old);
    database.rename(other, "b");
    EXPECT_EQ(database.find(std::string_view("a")), nullptr);
    EXPECT_EQ(database.find(std::string_view("b")), &other);
}

TEST(Database, ReadersNeedNoLockWhileElementsAreAdded) {
    Database database;
    constexpr std::size_t count = 5000;
    std::thread reader([&] {
        for (std::size_t known = 0; known < count; known = database.size())
            for (std::size_t tag = 1; tag <= known; tag += 97)
                if (*database.find(static_cast<miTag>(tag))->as<std::size_t>() == count)
                    ADD_FAILURE();
    });
    for (std::size_t k = 0; k < count; ++k)
        database.add(miSCENE_STRING, "", {}, sizeof(std::size_t));
    reader.join();
    EXPECT_EQ(database.size(), count);
}

} // namespace
} // namespace stage
