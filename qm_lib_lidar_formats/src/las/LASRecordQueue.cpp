#include "las/LASRecordQueue.h"

#include <utility>

namespace Quillmoran {

LASRecordQueue::LASRecordQueue(std::unique_ptr<LASRecordWriter> writer, std::size_t maxSlices)
    : m_writer(std::move(writer)), m_maxSlices(maxSlices), m_thread([this] { run(); })
{}

LASRecordQueue::~LASRecordQueue()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ends = m_drops = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

LASRecordQueue::Slice LASRecordQueue::take()
{
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

void LASRecordQueue::put(Slice slice)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_failure)
            std::rethrow_exception(m_failure);
        m_waiting.push_back(std::move(slice));
    }
    m_changed.notify_all();
}

void LASRecordQueue::finish()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ends = true;
    }
    m_changed.notify_all();
    m_thread.join();
    if (m_failure)
        std::rethrow_exception(m_failure);
}

void LASRecordQueue::run()
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

void LASRecordQueue::writeSlices(std::unique_lock<std::mutex>& lock)
{
    for (;;) {
        m_changed.wait(lock, [this] { return m_ends || !m_waiting.empty(); });
        if (m_drops)
            return;
        if (m_waiting.empty())
            break;
        Slice slice = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        m_writer->write(slice.records.data(), slice.count);
        lock.lock();
        m_free.push_back(std::move(slice));
        m_changed.notify_all();
    }
    lock.unlock();
    m_writer->finish();
}

} // namespace Quillmoran
