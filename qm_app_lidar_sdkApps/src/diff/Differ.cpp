#include "diff/Differ.h"

#include "diff/ComparedCloud.h"
#include "diff/DiffJSON.h"
#include "diff/DiffText.h"
#include "diff/PointComparison.h"
#include "diff/SampleComparison.h"
#include "diff/UnorderedComparison.h"
#include "model/ChannelNames.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Utils.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Quillmoran {

namespace {

constexpr char description[] = "Compares two LiDAR point clouds";

std::vector<std::string> splitNames(const std::string& text)
{
    std::vector<std::string> names;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        names.push_back(text.substr(begin, end - begin));
        if (names.back().empty())
            QM_THROW(ErrorCode::InvalidArgument, "a name is missing in '%s'", text.c_str());
        begin = end + 1;
    }
    return names;
}

// The bounds of the points that were read, of the axes that are compared.
void compareBounds(const double* tolerance, DiffReport& report)
{
    struct Axis
    {
        const char* name;
        Bounds::Range Bounds::*range;
    };
    constexpr Axis axes[] = {
        {ChannelNames::x, &Bounds::x}, {ChannelNames::y, &Bounds::y}, {ChannelNames::z, &Bounds::z}};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& [name, range] = axes[i];
        const Bounds::Range& a = report.a.bounds.*range;
        const Bounds::Range& b = report.b.bounds.*range;
        const double allowed = tolerance ? tolerance[i] : 0;
        const bool isCompared =
            std::find(report.channels.begin(), report.channels.end(), name) != report.channels.end();
        if (isCompared && !(isWithin(a.min, b.min, allowed) && isWithin(a.max, b.max, allowed)))
            report.bounds.push_back({name, a, b});
    }
}

} // namespace

Differ::Differ() : Program("vxdiff", description, Syntax::Extended, errorStatus)
{
    m_cmdLine.setExamples("INPUT INPUT [OPTION...]",
                          {{"vxdiff survey.laz survey.vxl", "compares points in order, and metadata"},
                           {"vxdiff -unordered tiles/ all.vxl", "compares points in any order"},
                           {"vxdiff -tolerance 0.01 0.01 0.01 a.las b.las", "accepts rounded coordinates"}});
    // One file per occurrence, so that options may follow the names.
    static const std::string inputHelp =
        "file (" + Formats::listInputs() + "), list of files, index or directory.  Given twice";
    m_cmdLine.addStringArray("i", "inputFile", inputHelp.c_str(), true, -1);
    m_cmdLine.setExtra("i");
    m_cmdLine.addFlag("unordered", nullptr,
                      "ignore the order of the points: compare how often each point occurs");
    m_cmdLine.addFloatArray("tolerance", nullptr,
                            "largest differences of x, y and z that do not count.  By default 0", false, 3);
    m_cmdLine.addString("channels", nullptr,
                        "compare only these channels: names, separated by commas.  By default all", false);
    m_cmdLine.addFlag("json", nullptr, "write a JSON object");
    Utils::addInputFormatOption(m_cmdLine);
    Utils::addDepthOption(m_cmdLine);
    Utils::addTXTPointReaderOptions(m_cmdLine);
    Utils::addWaveformOption(m_cmdLine);
}

void Differ::checkOptions() const
{
    const std::size_t numInputs = Utils::getStrings(m_cmdLine, "inputFile").size();
    if (numInputs != 2)
        m_cmdLine.usageError("two inputs are required, %zu given", numInputs);
    Utils::checkInputs(m_cmdLine);
    const double* const tolerance = m_cmdLine.getFloatArray("tolerance");
    if (!tolerance)
        return;
    if (std::any_of(tolerance, tolerance + 3,
                    [](double value) { return !(value >= 0) || std::isinf(value); }))
        m_cmdLine.usageError("the values of -tolerance must be finite numbers of at least 0");
    // Whether two sets of points can be paired within a tolerance is a matching problem, which does not
    // reduce to sorting: a point can have several partners, and the choice affects other points.
    if (m_cmdLine.getFlag("unordered"))
        m_cmdLine.usageError("-tolerance needs points in the same order and cannot be used with -unordered");
}

bool Differ::work()
{
    Utils::ignoreWriteSignals(); // of temporary files
    const bool json = m_cmdLine.getFlag("json");
    DiffReport report;
    {
        Utils::ProgressLine progress;
        report = compare(progress);
    }
    if (!json && Utils::isQuiet())
        return report.isEqual();
    const std::string text = json ? toJSON(report) : toText(report, m_cmdLine.getFlag("verbose"));
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (!json)
        printRun(stdout, static_cast<std::int64_t>(report.a.numPoints + report.b.numPoints),
                 report.a.numBytes + report.b.numBytes);
    Utils::finishReport();
    return report.isEqual();
}

DiffReport Differ::compare(ProgressDelegate& progress) const
{
    std::vector<std::string> channels;
    if (m_cmdLine.isPresent("channels"))
        channels = splitNames(m_cmdLine.getString("channels"));
    const std::vector<std::string> inputs = Utils::getStrings(m_cmdLine, "inputFile");
    const ComparedCloud a(inputs[0], m_cmdLine, progress);
    const ComparedCloud b(inputs[1], m_cmdLine, progress);

    DiffReport report;
    report.a.name = a.name;
    report.b.name = b.name;
    report.a.numBytes = a.getSize();
    report.b.numBytes = b.getSize();
    const ComparedChannels compared = compareDescriptions(a, b, channels, report);
    const double* const tolerance = m_cmdLine.getFloatArray("tolerance");
    if (m_cmdLine.getFlag("unordered"))
        compareUnordered(*a.source, *b.source, compared, progress, report);
    else
        comparePoints(*a.source, *b.source, compared, tolerance, progress, report);
    compareBounds(tolerance, report);
    return report;
}

} // namespace Quillmoran
