// Whether a signal has asked this process to stop. Progress delegates pass this on to operations; code that
// waits for another process asks directly.
#pragma once

namespace Quillmoran {

// Once true, it stays true.
bool isInterrupted() noexcept;
// May be called from a signal handler.
void setInterrupted() noexcept;

} // namespace Quillmoran
