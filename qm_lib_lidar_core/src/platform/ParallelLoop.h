// Loops whose iterations run on the threads of the scheduler that the caller runs in. Used for the channels
// of a block of points, the subblocks of a channel and the lines of a text.
#pragma once

#include <cstddef>
#include <functional>

namespace Quillmoran {

// Calls body(0) to body(count - 1), in any order and on any thread, and returns when all have returned. All
// iterations run even if some throw; the exception of the lowest index is rethrown, so that errors do not
// depend on scheduling. While it waits, the caller runs no tasks of other loops, which may need a lock that
// it holds.
void parallelLoop(std::size_t count, const std::function<void(std::size_t)>& body);

// The same inside the body of another loop or of a BackgroundTask, or a step of TaskLanes: while it waits, the
// caller may run other tasks of that loop.
void nestedParallelLoop(std::size_t count, const std::function<void(std::size_t)>& body);

// The maximum number of threads of a loop.
std::size_t getNumThreads();

// Whether this build can start threads.
bool hasThreads() noexcept;

} // namespace Quillmoran
