// Which lights the lists of instances mean.
#pragma once

#include <map>
#include <span>
#include <utility>
#include <vector>

#include "shader.h"

namespace stage {

class World;

// Finds the lights of the world's lists. The spans stay valid as long as this lives.
class LightLists {
public:
    // Light instances of the list `tags`, or with `exclusive` all others, in the scene's order and each once.
    // A light in it stands for its instances, a group or an instance of one for its members.
    std::span<const miTag> find(const World& world, std::span<const miTag> tags, bool exclusive);

private:
    std::map<std::pair<const miTag*, bool>, std::vector<miTag>> known_; // by the list's place
};

} // namespace stage
