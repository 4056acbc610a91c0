#include "info/Inspector.h"

#include "files/QMFileUtils.h"
#include "info/DigestCheck.h"
#include "info/JSONReport.h"
#include "info/PointCheck.h"
#include "info/TextReport.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Utils.h"
#include "utils/sets/PointScan.h"
#include <vxunpack/LASPointReader.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/VX7PointReader.h>

#include <cstdio>
#include <utility>

namespace Quillmoran {

namespace {

constexpr char description[] = "Describes LiDAR files and checks them for damage";

// The bytes that are read for one point in `interval`.
std::int64_t countBytes(const SourceDescription& source, std::uint64_t interval)
{
    auto bytes = static_cast<std::int64_t>(source.fileBytes.value_or(0));
    for (const std::int64_t level : source.compressedSize.levelBytes) {
        if (interval == 1)
            break;
        bytes -= level; // finer than those that are read
        interval /= 2;
    }
    return bytes;
}

} // namespace

Inspector::Inspector() : Program("vxinfo", description)
{
    m_cmdLine.setExamples("INPUT... [OPTION...]",
                          {{"vxinfo survey.vxl", "describes a file"},
                           {"vxinfo -check tiles/", "decodes all files of a directory and finds damage"},
                           {"vxinfo -json -stats *.vxl", "writes an array with an object for each file"}});
    Utils::addTXTPointReaderOptions(m_cmdLine);
    m_cmdLine.addFlag("json", nullptr, "write a JSON array with an object for each file.");
    m_cmdLine.addFlag("check", nullptr,
                      "decode all points and compare them with the description in the file.");
    m_cmdLine.addFlag("stats", nullptr,
                      "decode all points for the range, the mean and the histogram of each channel.");
    m_cmdLine.addFlag("fast", nullptr,
                      "estimate -stats from about 100000 points, if the format has coarser levels.");
    // One file per occurrence, so that options may follow the names.
    m_cmdLine.addStringArray("i", "inputFile", "file, list of files or directory.", true, -1);
    m_cmdLine.setExtra("i");
    Utils::addInputFormatOption(m_cmdLine);
    Utils::addDepthOption(m_cmdLine);
}

void Inspector::checkOptions() const
{
    Utils::checkInputs(m_cmdLine);
    if (m_cmdLine.getFlag("fast") && !m_cmdLine.getFlag("stats"))
        m_cmdLine.usageError("-fast needs -stats");
    if (m_cmdLine.getFlag("fast") && m_cmdLine.getFlag("check"))
        m_cmdLine.usageError("-fast and -check exclude each other");
}

bool Inspector::work()
{
    const bool json = m_cmdLine.getFlag("json");
    if (json)
        std::printf("[");
    for (const std::string& argument : Utils::getStrings(m_cmdLine, "inputFile"))
        inspectArgument(argument);
    if (json)
        std::printf("\n]\n");
    else if (!Utils::isQuiet() && m_numBytes != 0)
        printRun(stdout, m_numPoints, m_numBytes);
    Utils::finishReport();
    return m_allSound;
}

void Inspector::inspectArgument(const std::string& argument)
{
    FileReport unreadable;
    unreadable.fileName = argument;
    std::vector<Utils::Input> inputs;
    attempt(unreadable, [&] { inputs = expand(argument); });
    if (!unreadable.problems.empty())
        write(unreadable);
    for (const Utils::Input& input : inputs)
        write(inspect(input));
}

FileReport Inspector::inspect(const Utils::Input& input)
{
    FileReport report;
    report.fileName = input.name;
    attempt(report, [&] {
        const auto manager = createManager();
        manager->addFile(input.name.c_str(), input.type, input.io.get());
        Scoped<PointSource> source(manager->createPointSource(0));
        source->getWKT(); // may fail to load a module
        const auto* las = dynamic_cast<const LASPointReader*>(source.get());
        if (las && las->hasUnknownCoordinateSystem())
            Utils::warnOfUnknownCoordinateSystems({input.name}, "", Utils::warn);
        // A check compares the digests itself, to report all differences.
        auto* const compressed = dynamic_cast<VX7PointReader*>(source.get());
        if (compressed && m_cmdLine.getFlag("check"))
            compressed->setVerifiesDigests(false);
        report.description.emplace(std::move(source), input);
        if (m_cmdLine.getFlag("check") || m_cmdLine.getFlag("stats"))
            decode(report);
    });
    return report;
}

void Inspector::decode(FileReport& report)
{
    Utils::ProgressLine progress;
    scan(report, progress);
    m_numBytes += countBytes(*report.description, report.samplingInterval);
}

void Inspector::scan(FileReport& report, ProgressDelegate& progress)
{
    const PointSource& source = *report.description->source;
    std::optional<PointCheck> check;
    std::optional<DigestCheck> digests;
    if (m_cmdLine.getFlag("check")) {
        check.emplace(source);
        if (report.description->compression)
            digests.emplace(*report.description->compression);
    }
    const std::uint64_t interval = getSamplingInterval(*report.description);
    const double fraction = 1 / static_cast<double>(interval);
    progress.setTotal(source.getTotalWork(Bounds::Huge(), fraction) + (check ? check->getWork() : 0));
    std::vector<ChannelStatistics> statistics;
    if (m_cmdLine.getFlag("stats"))
        statistics = report.description->startStatistics(interval > 1);

    scanSample(source, Bounds::Huge(), fraction, source.getPointInfo(), &progress,
               [&](const PointData& block, std::size_t count) {
                   if (check)
                       check->add(block, count);
                   if (digests)
                       digests->add(block, count);
                   m_numPoints += static_cast<std::int64_t>(count);
                   for (std::size_t i = 0; i < statistics.size(); ++i)
                       statistics[i].add(block.getChannel(i), count);
               });

    report.statistics = std::move(statistics);
    report.isFast = m_cmdLine.getFlag("fast");
    report.samplingInterval = interval;
    if (check) {
        check->finish(&progress);
        report.check = {check->getNumPoints(), check->getNumQueries(), 0};
        report.problems = check->getProblems();
    }
    if (digests) {
        digests->finish();
        report.check->numDigests = digests->getNumDigests();
        report.problems.insert(report.problems.begin(), digests->getProblems().begin(),
                               digests->getProblems().end());
    }
}

// Tiles of other formats than .vxl are read completely, but give a sample as well.
std::uint64_t Inspector::getSamplingInterval(const SourceDescription& description) const
{
    constexpr std::int64_t enough = 100000; // points
    const PointSource& source = *description.source;
    const std::int64_t numPoints = source.getNumPoints();
    const bool hasLevels = description.compression || dynamic_cast<const MosaicFilter*>(&source);
    std::uint64_t interval = 1;
    if (!m_cmdLine.getFlag("fast") || !hasLevels || numPoints == PointSource::unknownNumPoints)
        return interval;
    for (std::int64_t left = numPoints / 2; left >= enough; left /= 2)
        interval *= 2;
    return interval;
}

void Inspector::write(const FileReport& report)
{
    const bool json = m_cmdLine.getFlag("json");
    if (json)
        std::printf("%s\n%s", m_isFirst ? "" : ",", toJSON(report).c_str());
    else if (!Utils::isQuiet())
        writeText(report);
    m_isFirst = false;
    if (report.problems.empty())
        return;
    m_allSound = false;
    std::fflush(stdout);
    for (const std::string& problem : report.problems) {
        // Errors of text files begin with the name and the line.
        const bool isLocated = problem.rfind(report.fileName + ':', 0) == 0;
        const std::string line = isLocated ? problem : report.fileName + ": " + problem;
        Utils::printError(line.c_str());
    }
}

template <class Work>
void Inspector::attempt(FileReport& report, Work work) const
{
    try {
        work();
    } catch (const Error& error) {
        if (error.code() == ErrorCode::Cancelled)
            throw;
        report.problems.push_back(explain(error));
    } catch (const std::exception& error) {
        report.problems.emplace_back(error.what());
    }
}

std::string Inspector::explain(const Error& error) const
{
    if (!m_cmdLine.getFlag("verbose"))
        return error.what();
    return error.what() + (" (error " + std::to_string(error.error())) + ", " + error.function() + " in " +
           (error.filename() ? error.filename() : "?") + ":" + std::to_string(error.line()) + ")";
}

Scoped<FilePointSourceManager> Inspector::createManager() const
{
    Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    Utils::setTextOptions(manager->getOpener(), true, m_cmdLine);
    Utils::handleRemoteOption(m_cmdLine, manager->getOpener());
    manager->getOpener().setOpenFullWaveformFiles(true);
    return manager;
}

std::vector<Utils::Input> Inspector::expand(const std::string& argument) const
{
    const Utils::Input input = Utils::openInput(m_cmdLine, argument);
    const auto manager = createManager();
    if (!input.io && QMFileUtils::isDirectory(argument.c_str()))
        Utils::addFiles(*manager, argument.c_str(), Utils::getDepth(m_cmdLine));
    else if (input.type == POINT_SOURCE_LIST)
        manager->addFile(input.name.c_str(), input.type, input.io.get());
    else
        return {input};
    std::vector<Utils::Input> inputs;
    for (std::size_t i = 0; i < manager->getNumSources(); ++i)
        inputs.push_back({manager->getFilename(i), manager->getFileType(i), {}});
    return inputs;
}

} // namespace Quillmoran
