// Records the tasks of a run on one thread, apart from lanes.
#pragma once

#include "platform/TaskTrace.h"
#include "scaling/RecordedRun.h"

#include <functional>
#include <mutex>

namespace Quillmoran {

class Recorder final : public TaskTrace
{
public:
    // Times are CPU times of threads, so that other programs do not change them. The pool must have no other
    // threads than the caller's.
    static RecordedRun record(const std::function<void()>& run);

private:
    Recorder();

    void note(Kind kind, std::uint64_t id, std::uint64_t count) override;
    void add(RecordedTask* parent, Kind kind, std::uint64_t id, std::uint64_t count);

    std::mutex m_mutex;
    RecordedRun m_run;
    std::uint64_t m_firstId;                      // its number in m_run is 0
    std::map<std::uint64_t, std::size_t> m_begun; // tasks of each lane
};

} // namespace Quillmoran
