// One output of a writer, from its name to the complete file. The output is a path, whose file is written to
// a temporary file in the same directory and renamed when it is complete, or an IO of the caller.
//
//   init() --> create() --> open() --> write: queue() or io() --> finishQueue() --> commit()
//
// A pipe cannot seek. A format that is not written in order is written to a spool file first, which commit()
// copies to the pipe.
//
// abort() undoes every state: the temporary file is removed, a file that was there before is kept, and an
// output that was opened for direct writing is unlinked. Used by one thread at a time.
#pragma once

#include "files/PartialFile.h"
#include "platform/OutputQueue.h"
#include <vxunpack/Base.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace Quillmoran {

class ProgressDelegate;

class OutputFile
{
public:
    enum Access
    {
        SEQUENTIAL, // the format is written in order, so that the output may be a pipe
        SEEKABLE
    };

    // Encoded bytes on their way to the output.
    struct Slice
    {
        // Makes space for `count` bytes; the contents are lost when the space grows.
        void reserve(std::size_t count);

        Buffer<unsigned char> bytes;
        std::size_t capacity = 0;
        std::size_t size = 0; // bytes used
    };
    using Queue = OutputQueue<Slice>;

    // `format`, a literal, names the format in messages. `mode` is that of FileIO.
    OutputFile(const char* format, Access access, const char* mode = "w")
        : m_format(format), m_access(access), m_mode(mode)
    {}
    ~OutputFile() { abort(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Names the output and aborts an earlier one; no file is touched. Throws InvalidArgument "path not given"
    // for a null path.
    void init(const char* path);
    // `name` is for messages.
    void init(IO* io, const char* name = "");
    // The path of the file or the name of the IO.
    const char* path() const noexcept { return m_path ? m_path->c_str() : m_name.c_str(); }

    // Creates the temporary file. Errors are those of PartialFile. Calling it again has no effect.
    void create();
    // Whether the created output can only be written in order.
    bool isPipe() const;
    // For an output that is about to be written in order after all.
    void setAccess(Access access) noexcept { m_access = access; }
    // Creates the output, if that was not done, and opens it. Throws InvalidArgument without a path or an IO.
    IO& open();
    // The open output, or the spool file.
    IO& io() const noexcept { return m_spool ? *m_spool : *m_io; }
    // The file of a path, from create() to commit() or abort(), or the spool file, from open() on; null for an
    // IO that is written directly.
    FileIO::Imp* file() const noexcept
    {
        return m_spool ? m_spool.get() : m_partial ? m_partial->io() : nullptr;
    }

    // Reports the activity and asks whether to stop: Cancelled "%s Write operation cancelled." with the
    // format's name. The delegate may be null.
    void checkCancelled(ProgressDelegate* delegate, const char* activity) const;

    // Starts a thread that passes slices to `write`, in order. Up to `maxSlices` slices exist at a time.
    void startQueue(std::function<void(const Slice&)> write, std::size_t maxSlices);
    Queue& queue() noexcept { return *m_queue; }
    // Waits for the slices and ends the thread; throws what `write` threw.
    void finishQueue();

    // Closes the complete output; a file gets its name, a pipe the contents of the spool file.
    void commit();
    // Ends the queue's thread first. What uses the output may be destroyed afterwards.
    void abort() noexcept;

private:
    void release() noexcept;

    const char* m_format;
    Access m_access;
    const char* m_mode;
    std::optional<std::string> m_path;
    std::string m_name;                   // of an IO
    std::optional<PartialFile> m_partial; // of a path, from create() on
    Scoped<IO> m_io;                      // of a path from create() on, the caller's from init() on
    Scoped<FileIO::Imp> m_spool;
    bool m_isBegun = false; // opened and not complete
    bool m_isOpen = false;
    std::optional<Queue> m_queue;
};

} // namespace Quillmoran
