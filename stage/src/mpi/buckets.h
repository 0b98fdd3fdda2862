// The buckets of a frame, given out among processes.
#pragma once

#include <memory>

#include "render/ranks.h"

namespace stage::mpi {

// In the leading process. `lost` is set when the frame was stopped and another process did not answer.
std::unique_ptr<BucketSource> leading_source(const FrameShare& frame, int processes, bool& lost);
// In the others.
std::unique_ptr<BucketSource> following_source(const FrameShare& frame);

} // namespace stage::mpi
