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
    // The number of threads that a limit of this number allows, at least 1.
    static unsigned resolve(unsigned numThreads);
    ~ThreadLimit();

    // Runs the work on the calling thread; what it throws is passed on.
    void execute(const std::function<void()>& work);
    // The same with at most `numThreads`, at least 1, of the threads of the limit that holds. Several threads
    // can call it at the same time.
    static void executeOn(unsigned numThreads, const std::function<void()>& work);

private:
    struct Imp;
    std::unique_ptr<Imp> m_imp;
};

} // namespace Quillmoran
