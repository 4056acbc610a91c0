// Passes slices of output to a thread that writes them in order while the caller prepares the next ones. The
// number of slices is limited, so that the faster side waits. Used by one thread at a time.
#pragma once

#include "platform/TaskTrace.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace Quillmoran {

template <class Slice>
class OutputQueue
{
public:
    // `write` is called on the queue's thread.
    OutputQueue(std::function<void(const Slice&)> write, std::size_t maxSlices)
        : m_write(std::move(write)), m_maxSlices(maxSlices), m_thread([this] { run(); })
    {}
    // Without finish() the slices that wait are discarded.
    ~OutputQueue()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_ends = m_drops = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable())
            m_thread.join();
    }
    OutputQueue(const OutputQueue&) = delete;
    OutputQueue& operator=(const OutputQueue&) = delete;

    // take() returns a slice to fill, with its earlier contents; the caller may have up to `maxSlices` of
    // them. All three functions throw what `write` threw.
    Slice take()
    {
        const std::uint64_t numTaken = m_numTaken++;
        const TaskTrace::Waiting waiting(numTaken < m_maxSlices ? nullptr : m_trace, TaskTrace::LANE_WAIT,
                                         m_lane, numTaken - m_maxSlices + 1);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_failure || !m_free.empty() || m_numSlices < m_maxSlices; });
        if (m_failure)
            std::rethrow_exception(m_failure);
        if (m_free.empty()) {
            ++m_numSlices;
            return {};
        }
        Slice slice = std::move(m_free.back());
        m_free.pop_back();
        return slice;
    }

    void put(Slice slice)
    {
        if (m_trace)
            m_trace->note(TaskTrace::LANE_ADD, m_lane, ++m_numPut);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_failure)
                std::rethrow_exception(m_failure);
            m_waiting.push_back(std::move(slice));
        }
        m_changed.notify_all();
    }

    // Waits until all slices are written.
    void finish()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_ends = true;
        }
        m_changed.notify_all();
        {
            const TaskTrace::Waiting waiting(m_trace, TaskTrace::LANE_WAIT, m_lane, m_numPut);
            m_thread.join();
        }
        if (m_failure)
            std::rethrow_exception(m_failure);
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        try {
            writeSlices(lock);
        } catch (...) {
            if (!lock.owns_lock())
                lock.lock();
            m_failure = std::current_exception();
            m_changed.notify_all();
        }
    }

    void writeSlices(std::unique_lock<std::mutex>& lock)
    {
        for (;;) {
            m_changed.wait(lock, [this] { return m_ends || !m_waiting.empty(); });
            if (m_drops || m_waiting.empty())
                return;
            Slice slice = std::move(m_waiting.front());
            m_waiting.pop_front();
            lock.unlock();
            {
                const TaskTrace::Running running(m_trace, TaskTrace::LANE_BEGIN, m_lane);
                m_write(slice);
            }
            lock.lock();
            m_free.push_back(std::move(slice));
            m_changed.notify_all();
        }
    }

    const std::function<void(const Slice&)> m_write;
    const std::size_t m_maxSlices;

    TaskTrace* const m_trace = TaskTrace::get();
    const std::uint64_t m_lane = m_trace ? TaskTrace::makeIds(1) : 0;
    std::uint64_t m_numTaken = 0; // slices, by all calls of take()
    std::uint64_t m_numPut = 0;   // slices, if there is a trace

    std::mutex m_mutex; // of everything below
    std::condition_variable m_changed;
    std::deque<Slice> m_waiting;
    std::vector<Slice> m_free;
    std::size_t m_numSlices = 0; // taken, waiting, being written or free
    bool m_ends = false;         // there are no more slices
    bool m_drops = false;        // discard the slices that wait
    std::exception_ptr m_failure;

    std::thread m_thread; // last: it uses the others
};

} // namespace Quillmoran
