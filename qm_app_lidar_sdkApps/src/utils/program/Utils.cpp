#include "utils/program/Utils.h"

#include "cli/QMCmdLine.h"
#include "platform/Version.h"
#include "text/FieldFormat.h"
#include "utils/program/Program.h"
#include "utils/program/Summary.h"
#include <vxunpack/Base.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace Quillmoran::Utils {

const char fieldLetters[] = "  x, y, z  => point values\n"
                            "  i => intensity\n"
                            "  r => return number\n"
                            "  n => number of returns\n"
                            "  d => scan direction\n"
                            "  e => edge of flight line\n"
                            "  a => scan angle\n"
                            "  c => class id\n"
                            "  p => source id\n"
                            "  u => user data\n"
                            "  t => GPS time (week)\n"
                            "  T => GPS time (adjusted)\n"
                            "  R => red\n"
                            "  G => green\n"
                            "  B => blue";

std::vector<std::string> getStrings(const QMCmdLine& cmdLine, const char* option)
{
    std::size_t count = 0;
    const char* const* values = cmdLine.getStringArray(option, count);
    return {values, values + count};
}

void addCommonOptions(QMCmdLine& cmdLine)
{
    cmdLine.addFlag("V", "verbose", "display more verbose error messages");
    cmdLine.addUint("j", "numThreads", "sets the number of available threads used while processing", false);
}

void setVersion(QMCmdLine& cmdLine)
{
    cmdLine.setVersionNumbers(Version::getSDKMajorVersion(), Version::getSDKMinorVersion(),
                              Version::getSDKVersionAge());
}

namespace {

constexpr const char* argumentNames[][2] = {{"numThreads", "N"},
                                            {"inputFile", "FILE"},
                                            {"outputFile", "FILE"},
                                            {"outputDirectory", "DIRECTORY"},
                                            {"index", "FILE"},
                                            {"depth", "N"},
                                            {"parse", "COLUMNS"},
                                            {"skipHeader", "N"},
                                            {"gpsWeek", "WEEK"},
                                            {"srs", "SRS"},
                                            {"outFields", "CHANNELS"},
                                            {"channels", "CHANNELS"},
                                            {"drop", "CHANNELS"},
                                            {"keep", "CHANNELS"},
                                            {"meta", "KEY=TEXT"},
                                            {"filter", "CHANNEL,VALUE,MODE"},
                                            {"subsample", "N"},
                                            {"crop", "XMIN XMAX YMIN YMAX ZMIN ZMAX"},
                                            {"quantize", "X Y Z"},
                                            {"tolerance", "X Y Z"},
                                            {"order", "ORDER"},
                                            {"transform", "[CHANNEL=]CODE"},
                                            {"subblockSize", "[CHANNEL=]N"},
                                            {"levels", "N"},
                                            {"pointsPerEntry", "N"},
                                            {"overview", "FILE"},
                                            {"overviewFraction", "FRACTION"},
                                            {"fileVersion", "N"},
                                            {"headerVersion", "N"},
                                            {"indexVersion", "N"},
                                            {"bandVersion", "N"}};

} // namespace

const char* getArgumentName(const char* option)
{
    for (const auto& [other, name] : argumentNames)
        if (std::strcmp(option, other) == 0)
            return name;
    return nullptr;
}

void nameArguments(QMCmdLine& cmdLine)
{
    for (const auto& [option, name] : argumentNames)
        if (cmdLine.hasOption(option))
            cmdLine.setArgumentName(option, name);
}

void addTXTPointReaderOptions(QMCmdLine& cmdLine)
{
    static const std::string parseDescription =
        std::string("parse format that describes the fields in a Text input file.\n"
                    "  Required for Text input without a header line '# X Y Z ...'.\n"
                    "  One letter per field, or names separated by commas, <name>:<type> for a name\n"
                    "  that is not standard: X,Y,Z,NearInfrared,Amplitude:FLOAT32\n") +
        fieldLetters + "\n  s => skip field";
    cmdLine.addString("p", "parse", parseDescription.c_str(), false);
    cmdLine.addUint("skip", "skipHeader", "Skip the first N line of Text input files.", false);
    cmdLine.addFlag("lenient", nullptr,
                    "accept Text input that does not fit.\n"
                    "  Values beyond their fields wrap, and surplus fields are ignored");
}

void setTextOptions(SimpleFileOpener& opener, bool scanNow, const QMCmdLine& cmdLine,
                    ProgressDelegate* cancellation)
{
    TextOptions options;
    if (cmdLine.isPresent("parse"))
        FieldFormat::parseColumns(cmdLine.getString("parse"), options.layout);
    if (cmdLine.isPresent("skipHeader"))
        options.skipLines = cmdLine.getUint("skipHeader");
    options.scanNow = scanNow;
    options.strict = !cmdLine.getFlag("lenient");
    options.cancellation = cancellation;
    opener.setTextOptions(options);
}

void handleRemoteOption(const QMCmdLine& cmdLine, SimpleFileOpener& opener)
{
    opener.setAllowsRemote(cmdLine.getFlag("allowRemote"));
}

void addWaveformOption(QMCmdLine& cmdLine)
{
    cmdLine.addFlag("dropWaveforms", nullptr,
                    "read LAS and LAZ files with waveforms without their waveform packets");
}

void handleWaveformOption(const QMCmdLine& cmdLine, SimpleFileOpener& opener)
{
    if (cmdLine.getFlag("dropWaveforms"))
        opener.dropWaveforms(warn);
}

void addGPSWeekOption(QMCmdLine& cmdLine)
{
    cmdLine.addUint("gpsWeek", nullptr,
                    "GPS week of all week times.  0 began on 1980-01-06.  Converts them to "
                    "adjusted standard time, which files with both kinds need",
                    false);
}

MergeOptions getMergeOptions(const QMCmdLine& cmdLine)
{
    constexpr unsigned maxGPSWeek = 99999; // about 1,900 years
    MergeOptions options;
    if (cmdLine.isPresent("gpsWeek")) {
        const unsigned week = cmdLine.getUint("gpsWeek");
        if (week > maxGPSWeek)
            QM_THROW(ErrorCode::General, "bad GPS week %u", week);
        options.gpsWeek = static_cast<int>(week);
    }
    options.requiresSameCoordinateSystem =
        cmdLine.isPresent("srs") && std::strcmp(cmdLine.getString("srs"), "same") == 0;
    return options;
}

Scoped<PointSource> openInputs(FilePointSourceManager& files, bool verbose, const MergeOptions& options)
{
    files.setGPSWeek(options.gpsWeek);
    for (std::size_t i = 0; verbose && i < files.getNumSources(); ++i) {
        const Scoped<PointSource> source(files.createPointSource(i));
        printHeader(stdout, *source, files.getFilename(i));
    }
    Scoped<PointSource> joined = joinFiles(files, options, warn);
    if (verbose && (files.getNumSources() > 1 || options.gpsWeek))
        printHeader(stdout, *joined, nullptr);
    return joined;
}

} // namespace Quillmoran::Utils
