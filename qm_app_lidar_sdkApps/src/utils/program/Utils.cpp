#include "utils/program/Utils.h"

#include "cli/QMCmdLine.h"
#include "platform/Version.h"
#include "text/FieldFormat.h"
#include "utils/program/Program.h"

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

PointSourceType getPointSourceType(const char* name)
{
    return SimpleFileOpener::getPointSourceType(name);
}

const char* getPointSourceTypeName(PointSourceType type)
{
    return SimpleFileOpener::getPointSourceTypeName(type);
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
                    "accept Text input whose values do not fit their fields (they wrap) and lines with more\n"
                    "  fields than the format");
}

void setTextOptions(FilePointSourceManager& manager, bool scanNow, const QMCmdLine& cmdLine,
                    ProgressDelegate* cancellation)
{
    setTextOptions(manager.getOpener(), scanNow, cmdLine, cancellation);
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

void addWaveformOption(QMCmdLine& cmdLine)
{
    cmdLine.addFlag("dropWaveforms", nullptr,
                    "read LAS and LAZ files with waveforms without their waveform packets");
}

bool dropsWaveforms(const QMCmdLine& cmdLine)
{
    return cmdLine.getFlag("dropWaveforms");
}

void handleWaveformOption(const QMCmdLine& cmdLine, SimpleFileOpener& opener)
{
    if (dropsWaveforms(cmdLine))
        opener.dropWaveforms(warn);
}

} // namespace Quillmoran::Utils
