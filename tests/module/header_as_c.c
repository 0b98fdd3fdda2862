/* The public header as a C99 compiler reads it. */
#include "orlshaders.h"

#include "header_as_c.h"

const size_t record_sizes_in_c[3] = {sizeof(orl_SceneData), sizeof(orl_NodeData), sizeof(orl_ObjectData)};
const size_t record_ends_in_c[3] = {offsetof(orl_SceneData, map_channel_ids),
                                    offsetof(orl_NodeData, all_lights),
                                    offsetof(orl_ObjectData, uv_channels)};
