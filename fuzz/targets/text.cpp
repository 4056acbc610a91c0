// Tables of points as text. The first line of an input is the format, the second the quantization, the third
// a filter, then come the lines of the table.
#include "cli/QMCmdLine.h"
#include "platform/Base.h"
#include "support/ByteStore.h"
#include "support/InputReader.h"
#include "support/ReadSource.h"
#include "text/TXTPointReader.h"
#include "text/TXTPointWriter.h"
#include "utils/Utils.h"

namespace Quillmoran::Fuzz {

namespace {

using Testing::ByteStore;

Scoped<PointSource> filtered(const std::string& filter, const Scoped<PointSource>& source)
{
    const char* const arguments[] = {"fuzz", "-filter", filter.c_str()};
    QMCmdLine cmdLine("fuzz", "", "", false);
    Utils::addFilterOptions(cmdLine);
    cmdLine.parse(3, arguments);
    return Utils::handleFilterOptions(cmdLine, source);
}

} // namespace

std::uint64_t run(Input input)
{
    InputReader reader(input);
    const std::string format = reader.takeLine();
    const std::string quantization = reader.takeLine();
    const std::string filter = reader.takeLine();
    const std::size_t skippedLines = reader.rest().size() % 3;
    PointInfo layout;
    TXTPointReader::parseFormat(format.c_str(), layout);

    const Scoped<ByteStore> store(ByteStore::create({reader.rest().begin(), reader.rest().end()}));
    const Scoped<TXTPointReader> lazy(TXTPointReader::create());
    lazy->init(store.get(), layout, skippedLines, false);
    PointInfo wanted;
    wanted.init(lazy->getPointInfo());
    TXTPointReader::parseQuantization(quantization.c_str(), wanted);
    std::uint64_t points = readPoints(*lazy, Bounds::Huge(), 1.0, wanted);
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
