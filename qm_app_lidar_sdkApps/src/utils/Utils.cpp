#include "utils/Utils.h"

#include "cli/QMCmdLine.h"
#include "platform/Version.h"
#include "text/TXTPointReader.h"

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
                    "  Required for Text input.\n") +
        fieldLetters + "\n  s => skip field";
    cmdLine.addString("p", "parse", parseDescription.c_str(), false);
    cmdLine.addUint("skip", "skipHeader", "Skip the first N line of Text input files.", false);
}

namespace {

template <class Target>
void setOptions(Target& target, bool scanNow, const QMCmdLine& cmdLine)
{
    if (!cmdLine.isPresent("parse"))
        return;
    PointInfo layout;
    TXTPointReader::parseFormat(cmdLine.getString("parse"), layout);
    const std::size_t skipLines = cmdLine.isPresent("skipHeader") ? cmdLine.getUint("skipHeader") : 0;
    target.setTextOptions(scanNow, layout, skipLines);
}

} // namespace

void setTextOptions(FilePointSourceManager& manager, bool scanNow, const QMCmdLine& cmdLine)
{
    setOptions(manager, scanNow, cmdLine);
}

void setTextOptions(SimpleFileOpener& opener, bool scanNow, const QMCmdLine& cmdLine)
{
    setOptions(opener, scanNow, cmdLine);
}

} // namespace Quillmoran::Utils
