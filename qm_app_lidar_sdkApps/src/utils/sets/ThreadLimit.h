// Limits the worker threads of a run.
#pragma once

#include <functional>
#include <memory>

namespace Quillmoran {

// The limit holds for as long as this object lives, for work in execute().
class ThreadLimit
{
public:
    // 0 is one thread per processor.
    explicit ThreadLimit(unsigned numThreads);
    ~ThreadLimit();

    // Runs the work on the calling thread; what it throws is passed on.
    void execute(const std::function<void()>& work);

private:
    struct Imp;
    std::unique_ptr<Imp> m_imp;
};

} // namespace Quillmoran
