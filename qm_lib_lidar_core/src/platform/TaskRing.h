// Runs tasks ahead of the thread that needs their results in order: the chunks of a compressed file are decoded
// and encoded in this way.
//
// The ring has a fixed number of slots, which hold the results. start() and finish() visit them in turn.
//
//            finish()                start()
//               |                       |
//   ... free ) [ returned | running ... ) free ...
//
// Used by one thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace Quillmoran {

class TaskRing
{
public:
    // run(slot) is the task of a slot, called on any thread. It must not use other loops or tasks.
    TaskRing(std::size_t numSlots, std::function<void(std::size_t)> run);
    // Drops the tasks that have not begun and waits for the others.
    ~TaskRing();
    TaskRing(const TaskRing&) = delete;
    TaskRing& operator=(const TaskRing&) = delete;

    // The number of tasks that are started and not finished.
    std::size_t numStarted() const noexcept;
    // The slot of the next start(). The ring must not be full.
    std::size_t nextSlot() const noexcept;
    void start();
    // Returns the slot of the oldest task when the task has returned, and rethrows its exception. While it waits,
    // the caller runs tasks of this ring. Either way the task is finished. There must be one.
    std::size_t finish();

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
