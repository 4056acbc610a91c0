#include "utils/Utils.h"

#include "cli/QMCmdLine.h"
#include "platform/Version.h"
#include "text/TXTPointReader.h"

namespace Quillmoran::Utils {

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

void setTextOptions(FilePointSourceManager& manager, bool scanNow, const QMCmdLine& cmdLine)
{
    if (!cmdLine.isPresent("parse"))
        return;
    PointInfo layout;
    TXTPointReader::parseFormat(cmdLine.getString("parse"), layout);
    const std::size_t skipLines = cmdLine.isPresent("skipHeader") ? cmdLine.getUint("skipHeader") : 0;
    manager.setTextOptions(scanNow, layout, skipLines);
}

} // namespace Quillmoran::Utils
