// Writes points as a plain text table: a line "# X Y Z ..." that names the columns, then one line per point
// with its fields separated by single blanks. The programs use it for text output.
//
// Integers are written whole. A floating-point channel is written with 3, 6, 9, 12 or 15 decimals if its
// quantization is 1, 0.1, 0.01 and so on, else with the decimals that a metadata record of the source names
// for it, else with all significant digits.
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

    // Names the source, which is retained, the output and the columns: one per channel of `fields` that the
    // source has, in that order; a channel named twice gives two columns. The format is a text of field
    // letters, see TXTPointReader. No file is created before write(). Output is written in order, so that it
    // may be a pipe.
    void init(PointSource* source, IO* io, const PointInfo& fields);
    void init(PointSource* source, IO* io, const char* format);
    void init(PointSource* source, const char* path, const PointInfo& fields);
    void init(PointSource* source, const char* path, const char* format);

    // Every channel is supported.
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

protected:
    // A column whose channel the layout lacks stays empty, without a separator. A channel of an unknown type
    // is TextField.
    void writeBegin(const PointInfo& layout) override;
    // Asks the delegate once per block: Cancelled "TXT Write operation cancelled.".
    void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) override;
    void writeEnd(std::int64_t count, const Bounds& bounds) override;
    void writeAborted() noexcept override;

private:
    struct Private;

    TXTPointWriter();
    ~TXTPointWriter() override;

    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
