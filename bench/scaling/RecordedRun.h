// What a run did: its tasks, the CPU time between two points at which a task starts others or waits for them,
// and these points. Recorded by Recorder, scheduled by simulate().
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <vector>

namespace Quillmoran {

struct RecordedStep
{
    enum Kind
    {
        RUN,       // `count` nanoseconds of CPU time
        ADD,       // the tasks `id` to `id` + `count` - 1 become ready, gated ones when their group is open
        OPEN,      // the group `id`
        WAIT,      // until these tasks are complete
        LANE_ADD,  // the next task of the lane `id` becomes ready
        LANE_WAIT, // until the lane `id` has run `count` tasks
    };

    Kind kind;
    std::uint64_t id;
    std::uint64_t count;
};

struct RecordedTask
{
    std::vector<RecordedStep> steps;
    // Of the loop or background task that it belongs to, 0 for none: a thread that waits for a task only runs
    // tasks of the same group meanwhile.
    std::uint64_t group = 0;
    std::uint64_t first = 0; // of those that are waited for with it
    bool isInOrder = false;  // the tasks of its group begin in their order
    bool isGated = false;    // it is not ready before its group is open
};

struct RecordedRun
{
    std::deque<RecordedTask> tasks;                          // by id; 0 is the thread that started the run
    std::map<std::uint64_t, std::deque<RecordedTask>> lanes; // threads with tasks of their own, in order
};

} // namespace Quillmoran
