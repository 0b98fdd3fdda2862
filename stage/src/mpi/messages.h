// What the processes of a frame send each other, all of it between the leading one (0) and one of the others.
//
//   ask      to 0     int: how many buckets are wanted. Answered once, by
//   give     from 0   up to that many buckets; none when none is left
//   result   to 0     std::uint64_t: a bucket, followed by
//   samples  to 0     its offsets, then its values, as floats in pieces
//   stop     to 0     this process was stopped, so the frame is
//   left     to 0     the last of a process in this frame
//   over     from 0   int: whether the frame is stopped. Once to each process: at once when it is, else in
//                     answer to `left`. Behind it no message of the frame is on its way.
//
// Whoever sends to an other process knows that it waits for just that, so nothing depends on how much MPI
// buffers. One thread of each process speaks. It sleeps where it has nothing to do: MPI's own ways to wait
// take a whole core.
#pragma once

#include <mpi.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace stage::mpi {

enum Tag : int { ask, give, result, samples, stop, left, over };

constexpr std::size_t floats_of_piece = std::size_t{1} << 26; // MPI counts with int

inline void rest() {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
}

// Whether a message has come in or is sent; the request is void then.
inline bool done(MPI_Request& request, MPI_Status* status = MPI_STATUS_IGNORE) {
    int flag = 0;
    MPI_Test(&request, &flag, status);
    return flag != 0;
}

inline void wait(MPI_Request& request) {
    while (!done(request))
        rest();
}

} // namespace stage::mpi
