// Keeps a file open during its lifetime, for reading: a failure of close() is ignored.
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
            // Nothing was written, so no data is lost.
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
