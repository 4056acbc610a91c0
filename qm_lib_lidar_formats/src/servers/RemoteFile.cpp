#include "servers/RemoteFile.h"

#include "platform/Interrupt.h"
#include "platform/LoadableModule.h"
#include "remote/RangeIO.h"
#include "remote/Traffic.h"
#include "servers/ServerModules.h"
#include <vxunpack/Base.h>

#include <cctype>
#include <cstring>
#include <string>
#include <strings.h>

namespace Quillmoran::RemoteFile {

namespace {

bool beginsWith(std::string_view name, std::string_view prefix) noexcept
{
    return name.size() >= prefix.size() && strncasecmp(name.data(), prefix.data(), prefix.size()) == 0;
}

bool isURL(std::string_view name) noexcept
{
    return beginsWith(name, "http://") || beginsWith(name, "https://");
}

// Names of buckets, for which GDAL has a file system.
struct Bucket
{
    std::string_view scheme;
    std::string_view folder;
};
constexpr Bucket buckets[] = {{"s3://", "/vsis3/"}, {"gs://", "/vsigs/"}, {"az://", "/vsiaz/"}};

const Bucket* findBucket(std::string_view name) noexcept
{
    for (const Bucket& bucket : buckets)
        if (beginsWith(name, bucket.scheme))
            return &bucket;
    return nullptr;
}

// "/vsi", letters or digits, and a separator.
bool isVirtual(std::string_view name) noexcept
{
    constexpr std::string_view prefix = "/vsi";
    if (name.substr(0, prefix.size()) != prefix)
        return false;
    const std::size_t end = name.find_first_of("/?", prefix.size());
    if (end == std::string_view::npos || end == prefix.size())
        return false;
    for (const char c : name.substr(prefix.size(), end - prefix.size()))
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_')
            return false;
    return true;
}

} // namespace

bool isRemote(std::string_view name) noexcept
{
    return isURL(name) || findBucket(name) || isVirtual(name);
}

std::string_view withoutQuery(std::string_view name) noexcept
{
    return isURL(name) ? name.substr(0, name.find_first_of("?#")) : name;
}

Scoped<IO> make(const char* name)
{
    const bool usesHTTP = isURL(name);
    auto* const makeSource = usesHTTP
                                 ? LoadableModule::find<decltype(qmMakeHTTPSource)>(HTTP_MODULE, "qmMakeHTTPSource")
                                 : LoadableModule::find<decltype(qmMakeVSISource)>(SRS_MODULE, "qmMakeVSISource");
    if (!makeSource)
        QM_THROW(ErrorCode::General, "cannot read '%s': the module for remote files is not installed", name);
    std::string path = name;
    if (const Bucket* const bucket = findBucket(name))
        path = std::string(bucket->folder) + (name + bucket->scheme.size());
    std::unique_ptr<RangeSource> source(makeSource(path.c_str(), {isInterrupted, Traffic::add}));
    return Scoped<IO>(RangeIO::create(std::move(source), name));
}

} // namespace Quillmoran::RemoteFile
