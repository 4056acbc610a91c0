// The scheduler of loops and tasks, which the build chooses: the class TaskGroup, a group of tasks whose
// owner waits for all of them, and the functions of the namespace Scheduler.
#pragma once

#if defined(VX_SERIAL)
#include "platform/scheduler/SerialScheduler.h"
#elif defined(__SANITIZE_THREAD__)
#include "platform/scheduler/ThreadScheduler.h"
#else
#include "platform/scheduler/TBBScheduler.h"
#endif
