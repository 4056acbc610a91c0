// Schedules a recorded run on a number of cores.
#pragma once

#include "scaling/RecordedRun.h"

namespace Quillmoran {

// The time of the run, in seconds, with one thread per core and one per lane. A thread first takes the tasks
// that it has added itself, then those of others, as the scheduler of the programs does, and one that waits only
// those that it could take in the program. If more threads are busy than there are cores, they share them
// equally. Not simulated: the cost of adding and taking tasks, locks, and the effect of cores on each other
// through caches, memory and clock rate.
double simulate(const RecordedRun& run, unsigned cores);

// CPU seconds: of all tasks, of the thread that started the run, and of the busiest lane.
struct RecordedWork
{
    double all = 0, main = 0, lane = 0;
};
RecordedWork measureWork(const RecordedRun& run);

} // namespace Quillmoran
