// The functions of the options of the public interface as a delegate.
#pragma once

#include <vxunpack/ProgressDelegate.h>

#include <atomic>
#include <functional>
#include <string>

namespace Quillmoran {

class Callbacks : public ProgressDelegate
{
public:
    // Either may be empty. They must outlive this object.
    Callbacks(const std::function<bool(double)>& progress,
              const std::function<void(const std::string&)>& warning)
        : m_progress(progress), m_warning(warning)
    {}

    void reportProgress(double fraction, const char*) override
    {
        if (m_progress && !m_progress(fraction))
            m_isCancelled = true;
    }
    bool getCancelled() override { return m_isCancelled; }
    void displayWarning(const char* text) override
    {
        if (m_warning)
            m_warning(text);
    }

private:
    const std::function<bool(double)>& m_progress;
    const std::function<void(const std::string&)>& m_warning;
    std::atomic<bool> m_isCancelled = false;
};

} // namespace Quillmoran
