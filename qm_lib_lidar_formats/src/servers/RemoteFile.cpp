#include "servers/RemoteFile.h"

#include "files/RemoteName.h"
#include "platform/Interrupt.h"
#include "platform/LoadableModule.h"
#include "remote/RangeIO.h"
#include "remote/Traffic.h"
#include "servers/ServerModules.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

Scoped<IO> makeRemoteFile(const char* name)
{
    auto* const makeSource =
        RemoteName::isURL(name)
            ? LoadableModule::find<decltype(qmMakeHTTPSource)>(HTTP_MODULE, "qmMakeHTTPSource")
            : LoadableModule::find<decltype(qmMakeVSISource)>(SRS_MODULE, "qmMakeVSISource");
    if (!makeSource)
        QM_THROW(ErrorCode::General, "cannot read '%s': the module for remote files is not installed", name);
    const std::string path = RemoteName::getVirtualPath(name);
    std::unique_ptr<RangeSource> source(makeSource(path.c_str(), {isInterrupted, Traffic::add}));
    return Scoped<IO>(RangeIO::create(std::move(source), name));
}

} // namespace Quillmoran
