// The buffer of a standard stream over an IO, for LASzip, which reads and writes standard streams. It either
// reads or writes. Used by one thread.
#pragma once

#include "las/laszip/LASzipChunks.h"
#include <vxunpack/Base.h>
#include <vxunpack/IO.h>

#include <cstdint>
#include <exception>
#include <ios>
#include <streambuf>

namespace Quillmoran {

class IOStreamBuffer final : public std::streambuf
{
public:
    // Reads checked chunks, and their head in place of the file's first bytes. A failed read, or one after
    // the end, gives zeros from then on: LASzip can crash when a stream fails or ends, but not on zeros. So
    // call throwFailure() after every call of LASzip.
    IOStreamBuffer(IO& io, const LASzipChunks& chunks);
    enum Access
    {
        SEEKABLE,
        SEQUENTIAL // LASzip writes the position of the chunk table after the table
    };
    // Writes from the position on.
    IOStreamBuffer(IO& io, std::int64_t position, Access access);

    // LASzip is about to seek to the beginning of a chunk of the table.
    void seekChunk(std::size_t chunk) noexcept { m_walk.seek(chunk); }
    // The position after the bytes that LASzip has read or written.
    std::int64_t tell() const noexcept;

    // Writes the buffered bytes. After an error they and all later ones are dropped without failing the
    // stream: LASzip leaks memory when it closes a failed stream.
    void flush();
    // Throws the error of an earlier read or write, which LASzip does not pass on.
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

    std::size_t fill();
    // Keeps the exception that is being handled; later reads give zeros.
    void failWithZeros();

    IO& m_io;
    LASzipChunkWalk m_walk;
    Buffer<char> m_buffer;
    std::int64_t m_position = 0; // reading: end of the buffered bytes; writing: their beginning
    bool m_writing;
    std::int64_t m_concealed = -1; // the position that seekoff() does not report
    std::exception_ptr m_failure;
};

} // namespace Quillmoran
