// Keeps a store open for as long as it lives, for readers: a failing close is not reported.
#pragma once

#include <vxunpack/IO.h>

namespace Quillmoran {

class OpenIO
{
public:
    explicit OpenIO(IO* io) : m_io(Scoped<IO>::retained(io)) { m_io->open(); }
    ~OpenIO()
    {
        try {
            m_io->close();
        } catch (...) {
            // Nothing was written, so nothing is lost.
        }
    }
    OpenIO(const OpenIO&) = delete;
    OpenIO& operator=(const OpenIO&) = delete;

    IO& operator*() const noexcept { return *m_io; }
    IO* operator->() const noexcept { return m_io.get(); }

private:
    Scoped<IO> m_io;
};

} // namespace Quillmoran
