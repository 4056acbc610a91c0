// Whether a signal has asked this process to stop. Progress delegates report it to operations; code that
// waits for another process checks it directly.
#pragma once

namespace Quillmoran {

// Never reset.
bool isInterrupted() noexcept;
// May be called from a signal handler.
void setInterrupted() noexcept;

} // namespace Quillmoran
