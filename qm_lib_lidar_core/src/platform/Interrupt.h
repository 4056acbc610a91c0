// Whether a signal has asked this process to stop. Progress delegates pass this on to operations; code that
// waits for another process asks directly.
#pragma once

#include "platform/Export.h"

namespace Quillmoran {

// Once true, it stays true.
QM_API bool isInterrupted() noexcept;
// May be called from a signal handler.
QM_API void setInterrupted() noexcept;

} // namespace Quillmoran
