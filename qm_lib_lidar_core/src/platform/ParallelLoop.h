// Loops whose iterations run on the threads of the scheduler that the caller runs in. Used for the channels
// of a block of points, the subblocks of a channel and the lines of a text.
#pragma once

#include <cstddef>
#include <functional>

namespace Quillmoran {

// Calls body(0) ... body(count - 1), in any order and on any thread, and returns when all have. Every
// iteration runs, whatever the others do; of the exceptions that they throw, that of the lowest index is
// thrown, so that errors do not depend on the order in which tasks ran. While the caller waits it takes up no
// work of other loops, which may want a lock that it holds.
void parallelLoop(std::size_t count, const std::function<void(std::size_t)>& body);

// The same inside the body of another loop or of a BackgroundTask: while the caller waits it may take up the
// work of that one.
void nestedParallelLoop(std::size_t count, const std::function<void(std::size_t)>& body);

// How many threads the loops can have here.
std::size_t getNumThreads();

} // namespace Quillmoran
