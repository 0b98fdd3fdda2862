/* What header_as_c.c found. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
/* Scene, node and object record: bytes, and offset of the last member. */
extern const size_t record_sizes_in_c[3];
extern const size_t record_ends_in_c[3];
#ifdef __cplusplus
}
#endif
