// Tables of points as text. The first line of an input is the format, the second the quantization, the third
// a filter; the other lines are the table.
#include "cli/QMCmdLine.h"
#include "support/FuzzTarget.h"
#include "text/FieldFormat.h"
#include "utils/program/Utils.h"
#include <vxunpack/TXTPointReader.h>
#include <vxunpack/TXTPointWriter.h>

namespace Quillmoran::Fuzz {

namespace {

Scoped<PointSource> filtered(const std::string& filter, const Scoped<PointSource>& source)
{
    const char* const arguments[] = {"fuzz", "-filter", filter.c_str()};
    QMCmdLine cmdLine("fuzz", "", "", false);
    Utils::addFilterOptions(cmdLine);
    cmdLine.parse(3, arguments);
    return Utils::handleFilterOptions(cmdLine, source);
}

// Reads text as the programs do. An error must name its line.
std::uint64_t readStrictly(const std::string& format, const Scoped<ByteStore>& store)
{
    try {
        TextOptions options;
        if (!FieldFormat::parseHeader(format, options.layout))
            FieldFormat::parseColumns(format.c_str(), options.layout);
        options.scanNow = options.strict = true;
        const Scoped<TXTPointReader> reader(TXTPointReader::create());
        reader->init(store.get(), "t", options);
        return readPoints(*reader, Bounds::Huge(), 1.0, reader->getPointInfo());
    } catch (const Error& error) {
        require(error.error() != 40005 || std::strncmp(error.what(), "t:", 2) == 0,
                "an error names its place");
        return 0;
    }
}

} // namespace

std::uint64_t runText(Input input)
{
    InputReader reader(input);
    const std::string format = reader.takeLine();
    const std::string quantization = reader.takeLine();
    const std::string filter = reader.takeLine();
    const std::size_t skippedLines = reader.rest().size() % 3;
    const Scoped<ByteStore> store = storeOf(reader.rest());
    std::uint64_t points = readStrictly(format, store);
    PointInfo layout;
    TXTPointReader::parseFormat(format.c_str(), layout);

    const Scoped<TXTPointReader> lazy(TXTPointReader::create());
    lazy->init(store.get(), layout, skippedLines, false);
    PointInfo wanted;
    wanted.init(lazy->getPointInfo());
    TXTPointReader::parseQuantization(quantization.c_str(), wanted);
    points += readPoints(*lazy, Bounds::Huge(), 1.0, wanted);
    points += readPoints(*lazy, partOf(lazy->getBounds()), 0.4, wanted);

    Scoped<PointSource> source = Scoped<PointSource>::retained(lazy.get());
    if (!filter.empty() && filter.front() != '-')
        source = filtered(filter, source);
    const Scoped<ByteStore> output(ByteStore::create());
    const Scoped<TXTPointWriter> writer(TXTPointWriter::create());
    writer->init(source.get(), output.get(), wanted);
    writer->write(Bounds::Huge(), 1.0, wanted, nullptr);
    return points;
}

} // namespace Quillmoran::Fuzz
