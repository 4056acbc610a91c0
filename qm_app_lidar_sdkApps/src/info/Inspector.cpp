#include "info/Inspector.h"

#include "info/JSONReport.h"
#include "info/PointCheck.h"
#include "info/TextReport.h"
#include "text/Printable.h"
#include "utils/ConsoleProgress.h"
#include "utils/PointScan.h"
#include "utils/Program.h"
#include "utils/ThreadPool.h"
#include "utils/Utils.h"
#include <vxunpack/LASPointReader.h>

#include <cstdio>
#include <utility>

namespace Quillmoran {

namespace {

constexpr char description[] = "Tells what LiDAR files hold and whether they are sound";

constexpr ErrorCode cancelledError = ErrorCode::Cancelled;

// Progress on a line of its own, which ends with this object; none in output for machines.
class ProgressLine
{
public:
    explicit ProgressLine(bool isShown)
    {
        if (isShown)
            m_delegate.emplace();
    }
    ~ProgressLine()
    {
        if (m_delegate)
            std::putchar('\n');
    }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    ProgressDelegate* delegate() { return m_delegate ? &*m_delegate : nullptr; }
    void setTotal(double work)
    {
        if (m_delegate)
            m_delegate->setTotal(work);
    }
    void finish()
    {
        if (m_delegate)
            m_delegate->finish();
    }

private:
    std::optional<Utils::ConsoleProgress> m_delegate;
};

} // namespace

Inspector::Inspector() : m_cmdLine("vxinfo", description, description, true)
{
    Utils::setVersion(m_cmdLine);
    Utils::addCommonOptions(m_cmdLine);
    Utils::addTXTPointReaderOptions(m_cmdLine);
    m_cmdLine.addFlag("json", nullptr, "write a JSON array with an object for each file.");
    m_cmdLine.addFlag("check", nullptr,
                      "decode all points and compare them with what the file tells about them.");
    m_cmdLine.addFlag("stats", nullptr, "decode all points for the range and the mean of each channel.");
    // One file per occurrence, so that options can follow the names.
    m_cmdLine.addStringArray("i", "inputFile", "name of an input file, or of a list of files.", true, -1);
    m_cmdLine.setExtra("i");
}

void Inspector::parse(int argc, const char* const* argv)
{
    m_cmdLine.setStrictNumbers();
    m_cmdLine.parse(argc, argv);
}

bool Inspector::run()
{
    const bool json = m_cmdLine.getFlag("json");
    std::size_t count = 0;
    const char* const* arguments = m_cmdLine.getStringArray("inputFile", count);
    ThreadPool pool(m_cmdLine.getUint("numThreads"));
    pool.execute([&] {
        if (json)
            std::printf("[");
        for (std::size_t i = 0; i < count; ++i)
            inspectArgument(arguments[i]);
        if (json)
            std::printf("\n]\n");
    });
    Utils::finishReport();
    return m_allSound;
}

void Inspector::inspectArgument(const char* argument)
{
    FileReport unreadable;
    unreadable.fileName = argument;
    std::vector<std::string> fileNames;
    attempt(unreadable, [&] { fileNames = expand(argument); });
    if (!unreadable.problems.empty())
        write(unreadable);
    for (const std::string& fileName : fileNames)
        write(inspect(fileName));
}

FileReport Inspector::inspect(const std::string& fileName) const
{
    FileReport report;
    report.fileName = fileName;
    attempt(report, [&] {
        const auto manager = createManager(fileName.c_str());
        Scoped<PointSource> source(manager->createPointSource(0));
        source->getWKT(); // may fail to load a module
        const auto* las = dynamic_cast<const LASPointReader*>(source.get());
        if (las && las->hasUnknownCoordinateSystem())
            Utils::warnOfUnknownCoordinateSystems({fileName}, "");
        report.description.emplace(std::move(source), fileName);
        if (m_cmdLine.getFlag("check") || m_cmdLine.getFlag("stats"))
            scan(report);
    });
    return report;
}

void Inspector::scan(FileReport& report) const
{
    const PointSource& source = *report.description->source;
    ProgressLine progress(!m_cmdLine.getFlag("json"));
    std::optional<PointCheck> check;
    if (m_cmdLine.getFlag("check"))
        check.emplace(source);
    progress.setTotal(source.getTotalWork(Bounds::Huge(), 1.0) + (check ? check->getWork() : 0));
    std::vector<ChannelStatistics> statistics;
    if (m_cmdLine.getFlag("stats"))
        for (std::size_t i = 0; i < source.getNumChannels(); ++i)
            statistics.emplace_back(source.getChannel(i));

    scanPoints(source, Bounds::Huge(), source.getPointInfo(), progress.delegate(),
               [&](const PointData& block, std::size_t count) {
                   if (check)
                       check->add(block, count);
                   for (std::size_t i = 0; i < statistics.size(); ++i)
                       statistics[i].add(block.getChannel(i), count);
               });

    report.statistics = std::move(statistics);
    if (check) {
        check->finish(progress.delegate());
        report.check = {check->getNumPoints(), check->getNumQueries()};
        report.problems = check->getProblems();
    }
    progress.finish();
}

void Inspector::write(const FileReport& report)
{
    const bool json = m_cmdLine.getFlag("json");
    if (json)
        std::printf("%s\n%s", m_isFirst ? "" : ",", toJSON(report).c_str());
    else
        writeText(report);
    m_isFirst = false;
    if (report.problems.empty())
        return;
    m_allSound = false;
    std::fflush(stdout);
    for (const std::string& problem : report.problems) {
        // Errors in text begin with the file's name and the line.
        const bool isLocated = problem.rfind(report.fileName + ':', 0) == 0;
        const std::string line = isLocated ? problem : report.fileName + ": " + problem;
        std::fprintf(stderr, "Error: %s\n", printable(line).c_str());
    }
}

template <class Work>
void Inspector::attempt(FileReport& report, Work work) const
{
    try {
        work();
    } catch (const Error& error) {
        if (error.code() == cancelledError)
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

Scoped<FilePointSourceManager> Inspector::createManager(const char* argument) const
{
    Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    Utils::setTextOptions(*manager, true, m_cmdLine);
    manager->setOpenFullWaveformFiles(true);
    manager->addFile(argument);
    return manager;
}

std::vector<std::string> Inspector::expand(const char* argument) const
{
    const auto manager = createManager(argument);
    std::vector<std::string> fileNames;
    for (std::size_t i = 0; i < manager->getNumSources(); ++i)
        fileNames.emplace_back(manager->getFilename(i));
    return fileNames;
}

} // namespace Quillmoran
