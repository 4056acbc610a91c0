// Runs the steps of several lanes ahead of the thread that needs their results: the blocks of a file are decoded
// in this way, with a lane per channel. The steps of a lane run one after the other, but no lane waits for
// another one.
//
//   lane 0   | step 0 | step 1 | step 2 |
//   lane 1   |   step 0   | step 1 |          finish() has returned for slot 0 when step 0 of all lanes has
//   lane 2   | step 0 |  step 1  |
//
// Step n of each lane uses slot n modulo the number of slots, which holds the results. start() and finish()
// visit the slots in turn. Used by one thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace Quillmoran {

class TaskLanes
{
public:
    // run(slot, lane) is a step, called on any thread. It may use nestedParallelLoop().
    TaskLanes(std::size_t numLanes, std::size_t numSlots, std::function<void(std::size_t, std::size_t)> run);
    // Waits for the steps that are started.
    ~TaskLanes();
    TaskLanes(const TaskLanes&) = delete;
    TaskLanes& operator=(const TaskLanes&) = delete;

    // The number of slots that are started and not finished.
    std::size_t numStarted() const noexcept;
    // The slot of the next start(). Not all slots may be started.
    std::size_t nextSlot() const noexcept;
    void start();
    // Returns the oldest slot when its steps have returned, and rethrows the exception of its lowest lane. A lane
    // runs no steps after one that has failed. While it waits, the caller only runs steps of that slot and their
    // loops. There must be one.
    std::size_t finish();

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
