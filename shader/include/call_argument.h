/*
 * What shaders hand each other as the fourth argument. A scene may put any shader into any slot, so a shader
 * may be given a record that is another's, and shorter than its own. Only the first four bytes are sure to be
 * there, and they tell the records apart:
 *
 *   OutputRequest           0 to 2; maps take any other number for a request that they do not know
 *   orl_RenderElementCall   its phase, 0 or 1; it never comes with a texture call, as requests do
 *   GeneratorRequest,       like requests; longer, and read as far as they go by coordinates over three
 *   CurveRequest            dimensions and by curves, whose numbers then mean nothing
 *   all others              a magic number of their own, `magic`
 */
#pragma once

#include "mi_binding.h"

#include <cstddef>
#include <cstring>

namespace orl {

/* The argument when it is a record of that type, otherwise null. */
template <class Record> Record* checked(Record* argument) {
    static_assert(offsetof(Record, magic) == 0 && sizeof(Record::magic) == sizeof(miUint));
    miUint word = 0;
    if (argument != nullptr)
        std::memcpy(&word, static_cast<const void*>(argument), sizeof word);
    return word == Record::magic_number ? argument : nullptr;
}

} // namespace orl
