// A standard stream's buffer over an IO, for LASzip, which reads and writes standard streams. One direction
// at a time, used by one thread.
#pragma once

#include "las/LASzipChunks.h"
#include <vxunpack/Base.h>
#include <vxunpack/IO.h>

#include <cstdint>
#include <exception>
#include <ios>
#include <streambuf>
#include <vector>

namespace Quillmoran {

class IOStreamBuffer final : public std::streambuf
{
public:
    // Reading: only sound chunks are shown, and their head in place of the store's first bytes. From a failed
    // read on, as one behind the end is, all bytes are zero: LASzip can crash where a stream goes bad or
    // ends, and not over zeros. So throwFailure() is called behind every call of LASzip.
    IOStreamBuffer(IO& io, const LASzipChunks& chunks);
    // Writing, from a position of the store on.
    IOStreamBuffer(IO& io, std::int64_t position);

    // Writes what is buffered. What the store does not take is dropped, and so is all that follows: LASzip
    // leaks memory when it closes a stream that has gone bad.
    void flush();
    // Throws what a read or a write has thrown, of which LASzip keeps the reason to itself.
    void throwFailure() const;

protected:
    int_type underflow() override;
    std::streamsize xsgetn(char* bytes, std::streamsize count) override;
    int_type overflow(int_type byte) override;
    int sync() override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

private:
    static constexpr std::size_t bufferSize = 64 * 1024;

    std::int64_t tell() const noexcept;
    std::size_t fill();
    // Keeps the exception that is being handled.
    void becomeZeros();

    IO& m_io;
    LASzipChunkWalk m_walk;
    Buffer<char> m_buffer;
    std::int64_t m_position = 0; // reading: of the end of the buffered bytes; writing: of their beginning
    bool m_writing;
    std::exception_ptr m_failure;
};

} // namespace Quillmoran
