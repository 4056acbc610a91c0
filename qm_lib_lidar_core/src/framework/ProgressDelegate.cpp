#include <vxunpack/ProgressDelegate.h>

#include <vxunpack/Base.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace Quillmoran {

ProgressDelegate::~ProgressDelegate() = default;

void ProgressDelegate::displayWarning(const char*)
{}

void ProgressDelegate::setTotal(double total)
{
    m_completed = 0;
    m_total = total;
}

void ProgressDelegate::updateCompleted(double delta, const char* message)
{
    m_completed += delta;
    reportProgress(getProgress(), message);
}

void ProgressDelegate::warning(const char* format, ...)
{
    char* formatted = nullptr;
    std::va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&formatted, format, arguments);
    va_end(arguments);
    if (length < 0) {
        displayWarning(format);
        return;
    }
    const Buffer<char> text(formatted);
    displayWarning(text.get());
}

} // namespace Quillmoran
