// Receives the progress and the warnings of a long operation and can cancel it. The operation sets the total
// amount of work once and reports the work done, both in points. Used by the thread that runs the operation.
#pragma once

#include <vxunpack/Export.h>

namespace Quillmoran {

class QM_API ProgressDelegate
{
public:
    ProgressDelegate() = default;
    virtual ~ProgressDelegate();
    ProgressDelegate(const ProgressDelegate&) = delete;
    ProgressDelegate& operator=(const ProgressDelegate&) = delete;

    // `message` is a literal that names the activity, such as "writing text file".
    virtual void reportProgress(double fraction, const char* message) = 0;
    // Whether to stop; the operation then throws Cancelled.
    virtual bool getCancelled() = 0;
    // By default warnings are ignored.
    virtual void displayWarning(const char* text);

    // Called by operations.
    void setTotal(double total);
    void updateCompleted(double delta, const char* message);
    // NaN if the total is 0 and no work was done.
    double getProgress() const { return m_completed / m_total; }
    double getCompleted() const { return m_completed; }
    void warning(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    double m_completed = 0;
    double m_total = 0;
};

} // namespace Quillmoran
