// Hands slices of packed point records to a thread that writes them, in order, while the next ones are made.
// How much can be under way is limited; whoever is faster waits.
#pragma once

#include "las/LASRecordWriter.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Quillmoran {

class LASRecordQueue
{
public:
    struct Slice
    {
        std::vector<unsigned char> records;
        std::size_t count = 0; // of records
    };

    LASRecordQueue(std::unique_ptr<LASRecordWriter> writer, std::size_t maxSlices);
    // Without finish(), what still waits is dropped.
    ~LASRecordQueue();
    LASRecordQueue(const LASRecordQueue&) = delete;
    LASRecordQueue& operator=(const LASRecordQueue&) = delete;

    // A slice to fill, with whatever it held before. All three throw what the writer threw.
    Slice take();
    void put(Slice slice);
    // Waits until everything is written and the point data is complete.
    void finish();

private:
    void run();
    void writeSlices(std::unique_lock<std::mutex>& lock);

    std::unique_ptr<LASRecordWriter> m_writer; // used by the thread
    const std::size_t m_maxSlices;

    std::mutex m_mutex; // of everything below
    std::condition_variable m_changed;
    std::deque<Slice> m_waiting;
    std::vector<Slice> m_free;
    std::size_t m_numSlices = 0; // taken, waiting, being written or free
    bool m_ends = false;         // nothing more will be put
    bool m_drops = false;        // what waits is not wanted any more
    std::exception_ptr m_failure;

    std::thread m_thread; // last: it uses the others
};

} // namespace Quillmoran
