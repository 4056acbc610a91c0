// How a long operation says how far it is and asks whether it should stop. The operation sets the total
// amount of work once and adds what it has done; units are the operation's own (points, in this system).
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

    // `message` is a literal that names the activity; its address tells one activity from the next.
    virtual void reportProgress(double fraction, const char* message) = 0;
    virtual bool getCancelled() = 0;
    // Does nothing unless overridden.
    virtual void displayWarning(const char* text);

    void setTotal(double total);
    void updateCompleted(double delta, const char* message);
    // Not a number when the total is 0 and nothing was done.
    double getProgress() const { return m_completed / m_total; }
    void warning(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    double m_completed = 0;
    double m_total = 0;
};

} // namespace Quillmoran
