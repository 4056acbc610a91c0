// A loop whose iterations run on the threads of the scheduler that the caller runs in. Used for the channels
// of a block.
#pragma once

#include <cstddef>
#include <functional>

namespace Quillmoran {

// Calls body(0) ... body(count - 1), in any order and on any thread, and returns when all have. Every
// iteration runs, whatever the others do; of the exceptions that they throw, that of the lowest index is
// thrown, so that errors do not depend on the order in which tasks ran.
void parallelLoop(std::size_t count, const std::function<void(std::size_t)>& body);

} // namespace Quillmoran
