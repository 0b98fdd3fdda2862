// What lights send, and what is kept of it.
#include <limits>

#include "kit/message.h"
#include "render/photons.h"
#include "stage_scene.h"

namespace {

using namespace stage_test;
using stage::PhotonMap;

// A light in a shell of 2 by 2 by 2 within a closed room of 6 by 6 by 6, about the origin. What the shell
// does to photons is the test's; the walls keep them.
class Room : public TestScene {
public:
    Room() {
        options->caustic = options->globillum = miTRUE;
        shader("wall", [](miState* state, miColor& energy) { mi_store_photon(&energy, state); });
    }
    template <class F> void enclose(F shell, const std::string& light, const std::string& flags = "") {
        shader("shell", shell);
        this->light("lamp", {},
                    light + " energy 1 2 3 caustic photons 2000 20000 globillum photons 2000 20000");
        for (const auto& [name, half] : {std::pair{"shell", 1}, std::pair{"wall", 3}}) {
            std::ostringstream text;
            text << "material " << name << "_m photon = '" << name << "' end material object " << name
                 << "_o trace on caustic 3 globillum 3 group";
            for (int corner = 0; corner < 8; ++corner)
                for (const int axis : {1, 2, 4})
                    text << ' ' << (corner & axis ? half : -half);
            text << " v 0 v 1 v 2 v 3 v 4 v 5 v 6 v 7";
            for (const char* face : {"0 2 3 1", "4 5 7 6", "0 1 5 4", "1 3 7 5", "3 2 6 7", "2 0 4 6"})
                text << " c '" << name << "_m' " << face;
            parse(text.str() + " end group end object");
            instance(std::string(name) + "_i", std::string(name) + "_o", {}, half == 1 ? flags : "");
        }
        build();
        stage::RenderSettings settings;
        settings.progress = false;
        settings.threads = 2;
        frame_ = std::make_unique<stage::Renderer>(scene, command, settings);
        frame_->render();
        maps = frame_->photon_maps();
    }
    const stage::PhotonMaps* maps = nullptr;

private:
    std::unique_ptr<stage::Renderer> frame_;
};

miVector power_of(const PhotonMap& map) {
    miVector sum{};
    for (std::uint32_t i = 0; i < map.size(); ++i)
        mi_vector_add(&sum, &sum, &map[i].power);
    return sum;
}

miBoolean pass(miState* state, miColor& energy) {
    return mi_photon_transmission_specular(&energy, state, &state->dir);
}

// Every photon passes the shell and lands on a wall: together they have the light's energy, and their mean
// place on the walls follows from where the light shines.
TEST(StagePhotons, CarryTheEnergyOfTheLight) {
    const struct {
        std::string light;
        float x, y, z; // mean place
    } cases[] = {
        {"'wall_code' () origin 0 0 0", 0, 0, 0},
        {"'wall_code' () origin 0 0 0 direction 0 0 -1 spread 0.9", 0, 0, -3},
        {"'wall_code' () origin 0 0 0 direction 1 0 0 disc 1 0 0 0.5", 3, 0, 0},
        {"'wall_code' () origin 0 0.5 0 direction 0 0 1 rectangle 0.5 0 0 0 0.2 0", 0, 0.5f, 3},
        {"'wall_code' () origin 0 0 0 sphere 0.3", 0, 0, 0},
        {"'wall_code' () origin 0 0 0 cylinder 0.5 0 0 0.1", 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.light);
        Room room;
        room.enclose(pass, c.light);
        ASSERT_TRUE(room.maps);
        const PhotonMap& caustic = room.maps->caustic;
        EXPECT_EQ(caustic.size(), 2000u);
        const miVector power = power_of(caustic);
        EXPECT_NEAR(power.x, 1.0f, 2e-4f);
        EXPECT_NEAR(power.z, 3.0f, 6e-4f);
        miVector mean{};
        for (std::uint32_t i = 0; i < caustic.size(); ++i) {
            const miVector& p = caustic[i].position;
            mean = {mean.x + p.x / 2000.0f, mean.y + p.y / 2000.0f, mean.z + p.z / 2000.0f};
            EXPECT_NEAR(std::max({std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)}), 3.0f, 1e-5f);
        }
        // Four times 2 / sqrt(2000), the deviation of a mean over the walls.
        EXPECT_NEAR(mean.x, c.x, 0.18f);
        EXPECT_NEAR(mean.y, c.y, 0.18f);
        EXPECT_NEAR(mean.z, c.z, 0.18f);
    }
}

// What the shell does decides in which map a photon is, and whether at all.
TEST(StagePhotons, AreKeptByWhatTheyHaveMet) {
    const auto specular = [](miState* s, miColor& e) { return pass(s, e); };
    const auto glossy = [](miState* s, miColor& e) { return mi_photon_transmission_glossy(&e, s, &s->dir); };
    const auto diffuse = [](miState* s, miColor& e) {
        return mi_photon_transmission_diffuse(&e, s, &s->dir);
    };
    const auto straight = [](miState* s, miColor& e) { return mi_photon_transparent(&e, s); };
    const auto bad = [](miState* s, miColor&) {
        miColor energy{std::numeric_limits<float>::quiet_NaN(), 0, 0, 0};
        return mi_photon_transmission_specular(&energy, s, &s->dir);
    };
    const auto endless = [](miState* s, miColor& e) {
        for (int i = 0; i < 20000; ++i)
            mi_photon_transparent(&e, s);
        return miTRUE;
    };
    const struct {
        std::function<miBoolean(miState*, miColor&)> shell;
        std::string flags;
        bool caustic, global;
        std::string told;
    } cases[] = {{specular, "", true, false, ""},
                 {glossy, "", true, false, ""},
                 {diffuse, "", false, true, ""},
                 {straight, "", false, false, ""},
                 {specular, "caustic off", false, false, ""},
                 {diffuse, "globillum off", false, false, ""},
                 {bad, "", false, false, "shell_code"},
                 {endless, "", false, false, "shell_code"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        std::string errors;
        stage::set_message_sink([&](stage::MessageLevel level, std::string_view text) {
            if (level == stage::MessageLevel::error)
                errors.append(text) += '\n';
        });
        Room room;
        if (!c.told.empty())
            room.options->globillum = miFALSE;
        room.enclose(c.shell, "'wall_code' () origin 0 0 0", c.flags);
        stage::set_message_sink(nullptr);
        ASSERT_TRUE(room.maps);
        EXPECT_EQ(room.maps->caustic.size() > 0, c.caustic);
        EXPECT_EQ(room.maps->global.size() > 0, c.global);
        EXPECT_EQ(std::ranges::count(errors, '\n'), c.told.empty() ? 0 : 1) << errors;
        EXPECT_NE(errors.find(c.told), std::string::npos) << errors;
    }
}

// Photons of power 1 at a distance of 0.01 on a plane, 10000 for each unit of area, of power 2 on its back,
// and of power 5 on a wall beside it, which do not count. Pictures have the rest.
TEST(StagePhotons, CountOnTheirOwnSide) {
    std::vector<stage::Photon> photons;
    for (int i = -50; i < 50; ++i)
        for (int j = -50; j < 50; ++j) {
            const float x = (static_cast<float>(i) + 0.5f) * 0.01f,
                        y = (static_cast<float>(j) + 0.5f) * 0.01f;
            photons.push_back({{x, y, 0.0f}, {0, 0, 1}, {1, 0, 0}});
            photons.push_back({{x, y, 0.0f}, {0, 0, -1}, {2, 0, 0}});
            photons.push_back({{0.05f, x, y}, {-1, 0, 0}, {5, 0, 0}});
        }
    const PhotonMap map(photons);
    std::vector<stage::Neighbour> buffer(1001);
    for (const float side : {1.0f, -1.0f}) {
        miColor density;
        ASSERT_TRUE(stage::surface_density(&density, map, {0, 0, 0}, {0, 0, side},
                                           {0.2f, 1000, 0.0f, buffer.data()}));
        const float expected = side > 0.0f ? 1e4f : 2e4f;
        EXPECT_NEAR(density.r, expected, 0.015f * expected);
    }
}

} // namespace
