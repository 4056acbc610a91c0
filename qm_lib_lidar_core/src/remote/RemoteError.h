// Errors of reading a remote file. They say nothing about its contents: code that takes other errors for a property of a
// file must pass them on.
#pragma once

#include <vxunpack/Base.h>

namespace Quillmoran {

inline bool isRemoteError(const Error& error) noexcept
{
    const ErrorCode code = error.code();
    return code == ErrorCode::RemoteRead || code == ErrorCode::RemoteChanged || code == ErrorCode::Cancelled;
}

} // namespace Quillmoran
