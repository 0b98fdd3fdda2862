/* The public header as a C99 compiler reads it: 24 fields of four bytes; 6 numbers, 2 arrays of three words
 * and 2 booleans; 9 numbers, a tag and an array. */
#include "orlshaders.h"

#include <stddef.h>

typedef char
    scene_record[sizeof(orl_SceneData) == 24 * 4 && offsetof(orl_SceneData, map_channel_ids) == 23 * 4 ? 1
                                                                                                       : -1];
typedef char
    node_record[sizeof(orl_NodeData) == 14 * 4 && offsetof(orl_NodeData, all_lights) == 13 * 4 ? 1 : -1];
typedef char object_record[sizeof(orl_ObjectData) == 13 * 4 && offsetof(orl_ObjectData, uv_channels) == 10 * 4
                               ? 1
                               : -1];
