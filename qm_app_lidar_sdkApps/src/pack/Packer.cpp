#include "pack/Packer.h"

#include "common/coders/TransformUtils.h"
#include "files/QMFileUtils.h"
#include "las/header/LASRestore.h"
#include "model/ChannelNames.h"
#include "pack/PackOptions.h"
#include "text/Printable.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Utils.h"
#include "utils/sets/Make.h"
#include "utils/sets/NamedSource.h"
#include <vxunpack/Base.h>
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/QuantizeFilter.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr char description[] = "Encodes LiDAR files as VX7 files";

// A line for each kernel channel with its coding and its size.
void printPackReport(const VX7PointWriter& writer, std::int64_t numPoints)
{
    std::printf("   %-20s %12s %8s %9s %12s %16s  %s\n", "Record", "Bytes", "a Point", "Subblock", "Scale",
                "Offset", "Transform");
    for (const VX7PointWriter::ChannelSummary& channel : writer.getSummary()) {
        const double perPoint =
            numPoints == 0 ? 0 : static_cast<double>(channel.size) / static_cast<double>(numPoints);
        std::printf("   %-20s %12lld %8.3f %9u %12g %16.10g  %d (%s)\n", printable(channel.name).c_str(),
                    static_cast<long long>(channel.size), perPoint, channel.subblockSize, channel.scale,
                    channel.offset + 0.0, static_cast<int>(channel.transform),
                    TransformUtils::toString(channel.transform).c_str());
    }
}

// Warns if the file does not keep the scale of a coordinate.
void warnOfLostScales(const VX7PointWriter& writer, const PointInfo& layout, const char* output)
{
    const std::vector<VX7PointWriter::ChannelSummary>& records = writer.getSummary();
    std::string names;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        const ChannelInfo* channel = layout.getChannel(name);
        // The parts of a split channel have other names.
        const bool isKept = std::any_of(records.begin(), records.end(), [name](const auto& record) {
            return record.name == name && record.scale != 0;
        });
        if (channel && channel->getQuantization() != 0 && !isKept)
            names += std::string(names.empty() ? "" : ", ") + name;
    }
    if (!names.empty())
        Utils::warn(std::string("'") + output + "': the scale and offset of " + names +
                    " are not stored, since the file has these coordinates as floating-point numbers; LAS "
                    "output rounds "
                    "them to 0.001 unless -sc is given");
}

} // namespace

Packer::Packer() : Program("vxpack", description)
{
    m_cmdLine.setStrictNumbers();
    static const std::string inputHelp =
        "file (" + Formats::listInputs() +
        "), list of files, index or directory.  May be repeated; several files become one cloud";
    m_cmdLine.addStringArray("i", "inputFile", inputHelp.c_str(), true, -1);
    m_cmdLine.addString("o", "outputFile", "name of output file, ending in .vxl", true);
    Utils::addDepthOption(m_cmdLine);
    Utils::addTXTPointReaderOptions(m_cmdLine);
    Utils::addGPSWeekOption(m_cmdLine);
    m_cmdLine.addString("srs", nullptr,
                        "'same' refuses inputs with different coordinate systems.  By default there is a "
                        "warning, and the first one is used",
                        false);
    Utils::addOutFieldsOption(m_cmdLine);
    Utils::addWaveformOption(m_cmdLine);
    Utils::addFilterOptions(m_cmdLine);
    Utils::addSubsampleOption(m_cmdLine);
    Utils::addCropOption(m_cmdLine);
    m_cmdLine.addFloatArray(
        "quantize", nullptr,
        "round coordinates to these steps (x, y, z).  The only option that changes values", false, 3);
    m_cmdLine.addString(
        "order", nullptr,
        "order of the points: 'input' as they come (default), or 'hilbert' along a curve that keeps "
        "neighbours together, so that boxes are read faster",
        false);
    PackOptions::add(m_cmdLine);
}

void Packer::checkOptions() const
{
    Utils::checkQueryOptions(m_cmdLine);
    if (const double* steps = m_cmdLine.getFloatArray("quantize"))
        if (std::any_of(steps, steps + 3, [](double step) { return !(step > 0) || std::isinf(step); }))
            m_cmdLine.usageError("the steps of -quantize must be numbers above 0");
}

bool Packer::work()
{
    Utils::ignoreWriteSignals();
    const char* output = m_cmdLine.getString("outputFile");
    if (Utils::getPointSourceType(output) != POINT_SOURCE_VX7)
        QM_THROW(ErrorCode::General, "the name of the output must end in '.vxl': '%s'", output);
    EncodeOptions options = PackOptions::get(m_cmdLine);

    Utils::ConsoleProgress progress;
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->setNamesErrors();
    Utils::handleWaveformOption(m_cmdLine, files->getOpener());
    addInputs(*files, progress);
    if (m_cmdLine.isPresent("srs") && std::strcmp(m_cmdLine.getString("srs"), "same") != 0)
        QM_THROW(ErrorCode::General, "unknown value '%s' of -srs, it is 'same'", m_cmdLine.getString("srs"));
    const Scoped<PointSource> source = applyFilters(
        Utils::openInputs(*files, m_cmdLine.getFlag("verbose"), Utils::getMergeOptions(m_cmdLine)));

    const PointInfo layout = Utils::getOutFields(m_cmdLine, *source, true);
    if (!layout.hasValidXYZ()) // otherwise the readers would report it as a fault of the file
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
    PackOptions::resolveChannels(options, layout);
    const auto writer = make<VX7PointWriter>(source.get(), output);
    warnOfUnrestorable(*files, writer->getMetadata());
    if (m_cmdLine.getFlag("dropWaveforms"))
        writer->setMetadata(Utils::withoutWaveformRecords(writer->getMetadata()));
    writer->setOptions(options);
    const std::int64_t count =
        writer->write(Utils::getCropBox(m_cmdLine), Utils::getFraction(m_cmdLine), layout, &progress);
    progress.finish();
    printResult(*writer, count);
    warnOfLostScales(*writer, layout, output);
    if (count == 0)
        Utils::warnOfEmptyOutput(m_cmdLine, *source, Utils::getStrings(m_cmdLine, "filter"));
    return true;
}

void Packer::addInputs(FilePointSourceManager& files, ProgressDelegate& delegate) const
{
    const std::vector<std::string> names = Utils::getStrings(m_cmdLine, "inputFile");
    // A mosaic needs the bounds of its files, so text is scanned when it is opened. A single text file is
    // not: the writer reads it twice anyway.
    const bool isMosaic =
        names.size() > 1 || Utils::getPointSourceType(names[0].c_str()) != POINT_SOURCE_TEXT;
    Utils::setTextOptions(files.getOpener(), isMosaic, m_cmdLine, &delegate);
    Utils::refuseNamed(m_cmdLine, m_cmdLine.getString("outputFile"));
    Utils::addNamed(files, m_cmdLine);
    if (files.getNumSources() == 0)
        QM_THROW(ErrorCode::General, "there are no files to read");
    Utils::refuseInputs(files, m_cmdLine.getString("outputFile"));
}

void Packer::warnOfUnrestorable(FilePointSourceManager& files, const Metadata& metadata) const
{
    if (files.getNumSources() != 1 || metadata.has(LASRestore::key))
        return;
    const Scoped<PointSource> source(files.createPointSource(0));
    if (dynamic_cast<const LASPointReader*>(&NamedSource::unwrap(*source)))
        Utils::warn(
            std::string("'") + files.getFilename(0) +
            "': vxunpack -restore will not give back this file byte for byte, since it has more than 64 "
            "MiB besides its points, or offsets that are too large for its scale");
}

Scoped<PointSource> Packer::applyFilters(Scoped<PointSource> source) const
{
    source = Utils::handleFilterOptions(m_cmdLine, source);
    if (m_cmdLine.isPresent("quantize"))
        source = make<QuantizeFilter, PointSource>(source.get(), m_cmdLine.getFloatArray("quantize"));
    if (!m_cmdLine.isPresent("order"))
        return source;
    const char* order = m_cmdLine.getString("order");
    if (std::strcmp(order, "hilbert") == 0)
        return make<HilbertOrder, PointSource>(source.get());
    if (std::strcmp(order, "input") != 0)
        QM_THROW(ErrorCode::General, "unknown order '%s', it is 'input' or 'hilbert'", order);
    return source;
}

void Packer::printResult(const VX7PointWriter& writer, std::int64_t numPoints) const
{
    const std::int64_t size = QMFileUtils::getSize(m_cmdLine.getString("outputFile"));
    std::printf("%lld points written, %lld bytes", static_cast<long long>(numPoints),
                static_cast<long long>(size));
    if (numPoints > 0)
        std::printf(", %.3f a point", static_cast<double>(size) / static_cast<double>(numPoints));
    std::putchar('\n');
    if (m_cmdLine.isPresent("quantize")) {
        const double* steps = m_cmdLine.getFloatArray("quantize");
        std::printf("coordinates were rounded to steps of %g, %g and %g: this file is not lossless\n",
                    steps[0], steps[1], steps[2]);
    }
    if (m_cmdLine.getFlag("verbose"))
        printPackReport(writer, numPoints);
}

} // namespace Quillmoran
