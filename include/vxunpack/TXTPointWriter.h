// Writes points as a plain text table: a line "# X Y Z ..." that names the columns, then one line per point
// with its fields separated by single blanks. The programs use it for text output.
//
// Integers are written without decimals. A floating-point channel whose quantization is 1, 0.1, 0.01 and so
// on is written with the decimals of the quantization; otherwise with the number of decimals in a metadata
// record of the source, if there is one. Numbers of decimals are rounded up to 3, 6, 9, 12 or 15. All other
// floating-point channels are written with all significant digits.
#pragma once

#include <vxunpack/PointWriter.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Quillmoran {

class IO;

class QM_API TXTPointWriter final : public SimplePointWriter
{
public:
    static TXTPointWriter* create();

    // Sets the source, which is retained, the output, and the columns: one per channel of `fields` that the
    // source has, in that order; a channel named twice gives two columns. `format` is a string of field
    // letters, see TXTPointReader. No file is created before write(). Output is written in order, so that it
    // may be a pipe.
    void init(PointSource* source, IO* io, const PointInfo& fields);
    void init(PointSource* source, IO* io, const char* format);
    void init(PointSource* source, const char* path, const PointInfo& fields);
    void init(PointSource* source, const char* path, const char* format);

    // Every channel is supported.
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

protected:
    // A column whose channel the layout lacks is omitted; if it is the first one, each line begins with a
    // blank. Throws TextField for a channel of an unknown type.
    void writeBegin(const PointInfo& layout) override;
    // Checks the delegate once per block, and throws Cancelled "TXT Write operation cancelled." if it asks to
    // stop.
    void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) override;
    void writeEnd(std::int64_t count, const Bounds& bounds) override;
    void writeAborted() noexcept override;

private:
    struct QM_HIDDEN Private;

    TXTPointWriter();
    ~TXTPointWriter() override;

    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
